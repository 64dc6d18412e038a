#include "args.h"

#include <stdlib.h>

#include <algorithm>

#include "errors.h"

namespace vtool {

bool parsed_args::has(const std::string& name) const {
    return values.count(name) != 0 || std::find(flags.begin(), flags.end(), name) != flags.end();
}

std::string parsed_args::value(const std::string& name, const std::string& fallback) const {
    const auto it = values.find(name);
    return it == values.end() ? fallback : it->second;
}

parsed_args parse_args(int argc, char** argv, int first, const std::vector<option_def>& defs,
                       const std::string& command) {
    parsed_args out;
    bool options_done = false;
    for (int i = first; i < argc; ++i) {
        std::string arg = argv[i];
        if (options_done || arg == "-" || arg.empty() || arg[0] != '-') {
            out.positionals.push_back(arg);
            continue;
        }
        if (arg == "--") {
            options_done = true;
            continue;
        }
        if (arg == "--help" || arg == "-h")
            throw help_request{command};
        std::string inline_value;
        bool has_inline = false;
        const size_t eq = arg.find('=');
        if (arg.compare(0, 2, "--") == 0 && eq != std::string::npos) {
            inline_value = arg.substr(eq + 1);
            arg = arg.substr(0, eq);
            has_inline = true;
        }
        const option_def* def = nullptr;
        for (const option_def& s : defs)
            if (arg == s.name || (s.alias && arg == s.alias) || (s.alias2 && arg == s.alias2))
                def = &s;
        if (!def)
            usage_error("unknown option " + arg + " for 'vantor " + command + "' (see vantor " +
                        command + " --help)");
        if (!def->takes_value) {
            if (has_inline)
                usage_error(std::string(def->name) + " takes no value");
            out.flags.push_back(def->name);
            continue;
        }
        if (!has_inline) {
            if (i + 1 >= argc)
                usage_error(std::string(def->name) + " needs a value");
            inline_value = argv[++i];
        }
        out.values[def->name] = inline_value;
    }
    return out;
}

int int_value(const parsed_args& a, const std::string& name, int fallback, int lo, int hi) {
    if (!a.has(name))
        return fallback;
    const std::string s = a.value(name, "");
    char* end = nullptr;
    const long v = strtol(s.c_str(), &end, 10);
    if (s.empty() || *end != '\0' || v < lo || v > hi)
        usage_error(name + " must be a whole number from " + std::to_string(lo) + " to " +
                    std::to_string(hi) + ", not '" + s + "'");
    return static_cast<int>(v);
}

double real_value(const parsed_args& a, const std::string& name, double fallback, double lo,
                  double hi) {
    if (!a.has(name))
        return fallback;
    const std::string s = a.value(name, "");
    char* end = nullptr;
    const double v = strtod(s.c_str(), &end);
    if (s.empty() || *end != '\0' || !(v >= lo && v <= hi))
        usage_error(name + " must be a number from " + std::to_string(lo) + " to " +
                    std::to_string(hi) + ", not '" + s + "'");
    return v;
}

}  // namespace vtool
