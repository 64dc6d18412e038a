// A small command-line parser: options with values, flags and positional arguments.
#ifndef VANTOR_TOOLS_ARGS_H
#define VANTOR_TOOLS_ARGS_H

#include <map>
#include <string>
#include <vector>

namespace vtool {

struct option_def {
    const char* name;   // canonical long name, e.g. "--size"
    const char* alias;  // short or alternative spelling, e.g. "-s"; may be null
    bool takes_value;
    const char* alias2 = nullptr;  // a second spelling, e.g. FFmpeg's "-pix_fmt"
};

struct parsed_args {
    std::map<std::string, std::string> values;  // by canonical name
    std::vector<std::string> flags;             // canonical names of flags given
    std::vector<std::string> positionals;       // "-" counts as positional

    bool has(const std::string& name) const;
    std::string value(const std::string& name, const std::string& fallback) const;
};

// Thrown by parse_args when the command line asks for the command's help (--help or -h).
struct help_request {
    std::string command;
};

// Parses argv[first .. argc - 1] for `command`. "--name=value" and "--name value" both work;
// "--" ends the options. An unknown option or a missing value is a usage error; --help or -h
// anywhere before "--" throws help_request.
parsed_args parse_args(int argc, char** argv, int first, const std::vector<option_def>& defs,
                       const std::string& command);

// Integer and real option values, with the option's name in the error.
int int_value(const parsed_args& a, const std::string& name, int fallback, int lo, int hi);
double real_value(const parsed_args& a, const std::string& name, double fallback, double lo,
                  double hi);

}  // namespace vtool

#endif
