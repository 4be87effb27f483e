/// Where a command says what it takes on the command line.
#ifndef QO_CTL_COMMAND_LINE_H
#define QO_CTL_COMMAND_LINE_H

#include <cstdint>
#include <string>
#include <vector>

namespace CLI {
class App;
}

/// What is declared is filled when the command line has been read; the variables have to live until then, and keep
/// their values when nothing is said of them. Descriptions are sentences without capital and full stop.
class QoCtlCommandLine {
public:
    explicit QoCtlCommandLine(CLI::App& app) : app_(app) {}

    enum class Need { required, optional };

    /// A word, or all words, by their place.
    void word(const char* name, std::string& value, const char* description, Need need = Need::required);
    void words(const char* name, std::vector<std::string>& values, const char* description, Need need = Need::required);

    void flag(const char* name, bool& value, const char* description);
    /// @param type of the value, as it is told in the help: "FILE"
    void text(const char* name, std::string& value, const char* type, const char* description);
    void number(const char* name, uint64_t& value, uint64_t least, uint64_t most, const char* description);
    /// More than 0, at most a day times 365.
    void seconds(const char* name, double& value, const char* description);

    /// The two, declared before, are not given together.
    void not_together(const char* first, const char* second);

private:
    CLI::App& app_;
};

#endif
