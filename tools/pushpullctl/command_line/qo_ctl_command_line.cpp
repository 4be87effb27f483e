// What a command declares, as CLI11 takes it.
#include "qo_ctl_command_line.h"

#include <CLI/CLI.hpp>

namespace {

constexpr double kLongestTimeS = 365 * 86400.0;

/// CLI11's own check of a range tells its limits with six decimals.
std::string is_time(const std::string& text) {
    double seconds = 0;
    const bool fits = CLI::detail::lexical_cast(text, seconds) && seconds > 0 && seconds <= kLongestTimeS;
    return fits ? "" : "\"" + text + "\" is no number of seconds above 0";
}

}  // namespace

void QoCtlCommandLine::word(const char* name, std::string& value, const char* description, Need need) {
    app_.add_option(name, value, description)->required(need == Need::required)->type_name("");
}

void QoCtlCommandLine::words(const char* name, std::vector<std::string>& values, const char* description, Need need) {
    app_.add_option(name, values, description)->required(need == Need::required)->type_name("");
}

void QoCtlCommandLine::flag(const char* name, bool& value, const char* description) {
    app_.add_flag(name, value, description);
}

void QoCtlCommandLine::text(const char* name, std::string& value, const char* type, const char* description) {
    app_.add_option(name, value, description)->option_text(type)->type_name(type);
}

void QoCtlCommandLine::number(const char* name, uint64_t& value, uint64_t least, uint64_t most,
                              const char* description) {
    app_.add_option(name, value, description)->option_text("N")->check(CLI::Range(least, most));
}

void QoCtlCommandLine::seconds(const char* name, double& value, const char* description) {
    app_.add_option(name, value, description)->option_text("SECONDS")->check(is_time);
}

void QoCtlCommandLine::not_together(const char* first, const char* second) {
    app_.get_option(first)->excludes(app_.get_option(second));
}
