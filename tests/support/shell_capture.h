/// The shell commands that the code under test gave to system(); none of them is run. Linked into every test
/// program; thread-safe.
#ifndef QO_TEST_SHELL_CAPTURE_H
#define QO_TEST_SHELL_CAPTURE_H

#include <string>
#include <vector>

/// Holds what was given to system() since it was created; one at a time.
class QoShellCapture {
public:
    QoShellCapture();
    std::vector<std::string> commands() const;
    /// What system() returns from now on; 0 at first.
    void set_result(int result);
};

#endif
