#pragma once

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace tarnbridge::cli {

// A mistake in how the command was called; printed with a pointer to --help, exit 2.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct OptionSpec {
    std::string name;  // without the leading "--"
    std::string value; // placeholder shown in help ("FILE"); empty for a flag
    std::string help;
    bool repeatable = false;
};

struct CommandSpec {
    std::string name;     // "scan", or "snapshot save"
    std::string usage;    // "PATH [options]"
    std::string summary;  // one line
    std::vector<OptionSpec> options;
    std::size_t minPositionals = 0;
    std::size_t maxPositionals = 0;
};

class Arguments {
public:
    std::vector<std::string> positionals;

    bool has(const std::string& name) const { return values_.count(name) > 0; }
    std::optional<std::string> value(const std::string& name) const;
    std::vector<std::string> values(const std::string& name) const;
    // A whole number option in [min, max], or `fallback` when absent.
    long long integer(const std::string& name, long long fallback, long long min, long long max) const;

    // Parses `args` (without the command's own words) against `spec`. "--help" is reported
    // through wantsHelp(), not as an error.
    static Arguments parse(const CommandSpec& spec, const std::vector<std::string>& args);
    bool wantsHelp() const { return help_; }

private:
    std::multimap<std::string, std::string> values_;
    bool help_ = false;
};

std::string helpText(const CommandSpec& spec);

} // namespace tarnbridge::cli
