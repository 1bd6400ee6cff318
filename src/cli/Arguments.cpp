#include "Arguments.h"

#include <algorithm>
#include <charconv>

namespace tarnbridge::cli {

std::optional<std::string> Arguments::value(const std::string& name) const
{
    const auto it = values_.find(name);
    if (it == values_.end())
        return std::nullopt;
    return it->second;
}

std::vector<std::string> Arguments::values(const std::string& name) const
{
    std::vector<std::string> out;
    const auto [begin, end] = values_.equal_range(name);
    for (auto it = begin; it != end; ++it)
        out.push_back(it->second);
    return out;
}

long long Arguments::integer(const std::string& name, long long fallback, long long min,
                             long long max) const
{
    const auto text = value(name);
    if (!text)
        return fallback;
    long long result = 0;
    const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), result);
    if (error != std::errc() || end != text->data() + text->size() || result < min || result > max)
        throw UsageError("--" + name + " takes a whole number from " + std::to_string(min) +
                         " to " + std::to_string(max) + ".");
    return result;
}

Arguments Arguments::parse(const CommandSpec& spec, const std::vector<std::string>& args)
{
    Arguments parsed;
    bool optionsDone = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (optionsDone || arg.size() < 2 || arg.compare(0, 2, "--") != 0) {
            parsed.positionals.push_back(arg);
            continue;
        }
        if (arg == "--") {
            optionsDone = true;
            continue;
        }
        if (arg == "--help") {
            parsed.help_ = true;
            return parsed;
        }
        std::string name = arg.substr(2);
        std::optional<std::string> inlineValue;
        if (const auto eq = name.find('='); eq != std::string::npos) {
            inlineValue = name.substr(eq + 1);
            name.resize(eq);
        }
        const auto option = std::find_if(spec.options.begin(), spec.options.end(),
                                         [&](const OptionSpec& o) { return o.name == name; });
        if (option == spec.options.end())
            throw UsageError("Unknown option --" + name + " for \"" + spec.name + "\".");
        std::string value;
        if (!option->value.empty()) {
            if (inlineValue)
                value = *inlineValue;
            else if (i + 1 < args.size())
                value = args[++i];
            else
                throw UsageError("--" + name + " needs a value (" + option->value + ").");
        } else if (inlineValue) {
            throw UsageError("--" + name + " takes no value.");
        }
        if (!option->repeatable && parsed.values_.count(name))
            throw UsageError("--" + name + " is given twice.");
        parsed.values_.emplace(name, value);
    }
    if (parsed.positionals.size() < spec.minPositionals)
        throw UsageError("\"" + spec.name + "\" needs " + spec.usage.substr(0, spec.usage.find(" [")) + ".");
    if (parsed.positionals.size() > spec.maxPositionals)
        throw UsageError("Too many arguments for \"" + spec.name + "\": " +
                         parsed.positionals[spec.maxPositionals] + ".");
    return parsed;
}

std::string helpText(const CommandSpec& spec)
{
    std::string out = "Usage: tarnbridge-cli " + spec.name + " " + spec.usage + "\n\n" +
                      spec.summary + "\n";
    std::size_t width = 4; // "help"
    if (!spec.options.empty()) {
        out += "\nOptions:\n";
        for (const auto& o : spec.options)
            width = std::max(width, o.name.size() + (o.value.empty() ? 0 : o.value.size() + 1));
        for (const auto& o : spec.options) {
            std::string left = "--" + o.name + (o.value.empty() ? "" : " " + o.value);
            left.resize(width + 4, ' ');
            out += "  " + left + o.help + "\n";
        }
    }
    out += "  --help" + std::string(width - 2, ' ') + "Show this help.\n";
    return out;
}

} // namespace tarnbridge::cli
