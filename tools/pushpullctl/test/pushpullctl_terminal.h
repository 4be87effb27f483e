/// The built pushpullctl on a terminal of its own.
#ifndef QO_TEST_PUSHPULLCTL_TERMINAL_H
#define QO_TEST_PUSHPULLCTL_TERMINAL_H

#include <gtest/gtest.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

class PushpullctlTerminal {
public:
    PushpullctlTerminal(std::vector<std::string> arguments, unsigned short columns, unsigned short rows);
    /// Kills one that still runs.
    ~PushpullctlTerminal();
    PushpullctlTerminal(const PushpullctlTerminal&) = delete;
    PushpullctlTerminal& operator=(const PushpullctlTerminal&) = delete;

    void press(const std::string& keys) const;
    void resize(unsigned short columns, unsigned short rows) const;

    /// The lines of the last screen that was drawn whole, without colours.
    std::vector<std::string> screen() const;
    /// Waits for a screen that `holds`. Bounded; a failure shows the last one.
    testing::AssertionResult wait_for_screen(const std::function<bool(const std::vector<std::string>&)>& holds);
    testing::AssertionResult wait_for_text(const std::string& text);
    /// Whether it stood on any screen so far.
    bool has_shown(const std::string& text) const;

    /// @return the exit status; -1 when it does not end
    int wait();

private:
    bool read_more();

    int terminal_ = -1;
    pid_t process_ = -1;
    std::string output_;
};

#endif
