/// The numbers by which failures are returned and logged, together so that none is given twice.
#ifndef QO_PUSHPULL_ERROR_CODES_H
#define QO_PUSHPULL_ERROR_CODES_H

inline constexpr int QO_ERR_QUEUE_OPEN = 50001;
inline constexpr int QO_ERR_QUEUE_RECEIVE = 50002;
inline constexpr int QO_ERR_QUEUE_SEND = 50003;
inline constexpr int QO_ERR_SUBSCRIBE = 50005;
inline constexpr int QO_ERR_UNSUBSCRIBE = 50006;
inline constexpr int QO_ERR_TREE_UPDATE = 50007;
inline constexpr int QO_ERR_TREE_SAVE = 50009;
inline constexpr int QO_ERR_TREE_DELETE = 50010;
inline constexpr int QO_ERR_REGISTRY_FULL = 50013;
inline constexpr int QO_ERR_NOT_REGISTERED = 50014;

#endif
