#pragma once

#include <string>
#include <string_view>

namespace tarnbridge::PathText {

// The last component, trailing slashes ignored; "/" for "/" and for the empty string.
std::string_view name(std::string_view path);

// What follows the last "." of the name; empty when there is none or the name starts with it.
std::string_view pathExtension(std::string_view path);

// Whether `path` is `root` or lies below it, by text alone ("/a" does not contain "/ab").
bool contains(std::string_view path, std::string_view root);

// The plain text order of paths: Unicode scalar values after canonical normalisation (NFC).
// For text below U+0300 (the common case) this is byte order and nothing is normalised. Bytes
// that are not UTF-8 compare as bytes, and the valid text around them is still normalised.
// Returns <0, 0, >0.
int compare(std::string_view a, std::string_view b);
inline bool less(std::string_view a, std::string_view b) { return compare(a, b) < 0; }

// `parent` + "/" + `name`, with no doubled slash below the root.
std::string join(std::string_view parent, std::string_view name);

} // namespace tarnbridge::PathText
