#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarnbridge {

// One file in the freedesktop.org Desktop Entry format: groups of "Key=Value" lines, with
// localised keys ("Name[de]"). Values are kept as the bytes of the file: names need not be
// UTF-8, and a launcher shows what it finds.
class DesktopEntry {
public:
    struct Group {
        std::string name;
        std::vector<std::pair<std::string, std::string>> entries; // raw values, file order
    };

    // Throws TarnbridgeError with the line that breaks the format: a line that is neither a
    // group, a key nor a comment, a key before the first group, a group named twice, binary data.
    static DesktopEntry parse(std::string_view text);
    // The same for a file; a file that cannot be read throws std::system_error.
    static DesktopEntry read(const std::string& path);

    const std::vector<Group>& groups() const { return groups_; }
    bool hasGroup(std::string_view group) const;

    // The raw value of `key` (no escapes decoded), the last one when a key is repeated.
    std::optional<std::string> raw(std::string_view group, std::string_view key) const;
    // A string value with its escapes decoded (\s \n \t \r \\).
    std::optional<std::string> string(std::string_view group, std::string_view key) const;
    // The value for `locale` (a POSIX locale name such as "de_DE.UTF-8@euro"), falling back
    // through lang_COUNTRY@MODIFIER, lang_COUNTRY, lang@MODIFIER, lang and the plain key.
    std::optional<std::string> localeString(std::string_view group, std::string_view key,
                                            std::string_view locale) const;
    // "true" or "false" (the old "1" and "0" too); any other value, or none, is `fallback`.
    bool boolean(std::string_view group, std::string_view key, bool fallback = false) const;

    // Decodes the escapes of a string value; an unknown escape stays as written.
    static std::string unescape(std::string_view value);

    // The arguments of an Exec value, its quoting rules applied (field codes stay as written).
    // Nothing for an unterminated quote or an empty command line.
    static std::optional<std::vector<std::string>> splitExec(std::string_view exec);

private:
    std::vector<Group> groups_;
};

inline constexpr std::string_view kDesktopEntryGroup = "Desktop Entry";

} // namespace tarnbridge
