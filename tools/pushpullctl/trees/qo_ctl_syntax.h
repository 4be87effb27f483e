/// What is wrong with a text that should be JSON. Pure functions; any thread.
#ifndef QO_CTL_SYNTAX_H
#define QO_CTL_SYNTAX_H

#include <string>
#include <string_view>

/// Where and why the service would not take the text: "line 3, column 14: Missing a comma or } after an object
/// member.", "line 9, column 600: nested deeper than 512 levels". Columns count bytes from 1. "" when it is valid JSON.
std::string qo_ctl_syntax_fault(std::string_view text);

#endif
