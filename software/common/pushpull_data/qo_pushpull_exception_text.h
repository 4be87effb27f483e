/// What an exception that was just caught says of itself.
#ifndef QO_PUSHPULL_EXCEPTION_TEXT_H
#define QO_PUSHPULL_EXCEPTION_TEXT_H

#include <exception>

/// For log lines: what the exception says of itself that the caller has just caught. Allocates nothing and throws
/// nothing, so it also serves where memory is short. Lives as long as the exception.
inline const char* qo_exception_text() noexcept {
    try {
        throw;
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "of an unknown kind";
    }
}

#endif
