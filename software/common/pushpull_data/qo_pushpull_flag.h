/// A flag that is set for the length of a block.
#ifndef QO_PUSHPULL_FLAG_H
#define QO_PUSHPULL_FLAG_H

/// Sets a flag from here to the end of the block, however that ends.
class QoFlagWhile {
public:
    explicit QoFlagWhile(bool& flag) : flag_(flag) { flag_ = true; }
    ~QoFlagWhile() { flag_ = false; }
    QoFlagWhile(const QoFlagWhile&) = delete;
    QoFlagWhile& operator=(const QoFlagWhile&) = delete;

private:
    bool& flag_;
};

#endif
