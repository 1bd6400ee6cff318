#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "model/DiskNode.h"
#include "model/FileIdentity.h"

// A small JSON document model for the product's own state files (queue, receipts, backups,
// snapshot records). Scans have their own streaming reader and writer; these files are small
// enough for a tree. Strings are byte strings: the \udcXX escape carries bytes that are not
// UTF-8, as in scan files.
namespace tarnbridge::json {

class Value {
public:
    enum class Type { null, boolean, number, string, array, object };

    Type type() const { return type_; }
    bool isObject() const { return type_ == Type::object; }
    bool isArray() const { return type_ == Type::array; }

    // Typed access; `what` names the value in the error ("the key \"bytes\"").
    bool boolean(std::string_view what) const;
    std::int64_t integer(std::string_view what) const;
    std::uint64_t unsignedInteger(std::string_view what) const;
    double number(std::string_view what) const;
    const std::string& string(std::string_view what) const;
    const std::vector<Value>& array(std::string_view what) const;
    const std::vector<std::pair<std::string, Value>>& members(std::string_view what) const;

    // The member `key` of an object; throws when this is no object or the key is missing.
    const Value& at(std::string_view key) const;
    const Value* find(std::string_view key) const;

    // The member `key`, typed; an error names it as "The key \"key\"".
    bool booleanAt(std::string_view key) const { return at(key).boolean(keyText(key)); }
    std::int64_t integerAt(std::string_view key) const { return at(key).integer(keyText(key)); }
    std::uint64_t unsignedIntegerAt(std::string_view key) const { return at(key).unsignedInteger(keyText(key)); }
    const std::string& stringAt(std::string_view key) const { return at(key).string(keyText(key)); }
    const std::vector<Value>& arrayAt(std::string_view key) const { return at(key).array(keyText(key)); }
    const std::vector<std::pair<std::string, Value>>& membersAt(std::string_view key) const
    {
        return at(key).members(keyText(key));
    }
    // How errors name a member: The key "bytes".
    static std::string keyText(std::string_view key) { return "The key \"" + std::string(key) + "\""; }

private:
    friend class Parser;
    Type type_ = Type::null;
    bool boolean_ = false;
    std::string text_; // a string's bytes, or a number's text
    std::vector<Value> items_;
    std::vector<std::pair<std::string, Value>> members_;
};

// Throws TarnbridgeError "The data is not valid JSON (at byte N)." on malformed text.
Value parse(std::string_view text);

// Builds compact JSON text; commas are placed by the writer.
class Writer {
public:
    Writer& beginObject();
    Writer& endObject();
    Writer& beginArray();
    Writer& endArray();
    Writer& key(std::string_view name);
    Writer& string(std::string_view bytes);
    Writer& integer(std::int64_t value);
    Writer& unsignedInteger(std::uint64_t value);
    Writer& number(double value);
    Writer& boolean(bool value);
    // A date given as seconds since the Unix epoch, stored as seconds since 2001-01-01 UTC.
    Writer& date(double unixSeconds);

    const std::string& text() const { return out_; }
    std::string take() { return std::move(out_); }

private:
    void separate();
    std::string out_;
    bool needComma_ = false;
};

// Dates read back as seconds since the Unix epoch.
double readDate(const Value& value, std::string_view what);
// The date in the member `key`.
inline double dateAt(const Value& object, std::string_view key)
{
    return readDate(object.at(key), Value::keyText(key));
}

// The value forms of the scan records, the same keys as in a scan file.
void write(Writer& w, const FileIdentity& identity);
void write(Writer& w, const DiskNode& node);
FileIdentity readIdentity(const Value& value);
DiskNode readNode(const Value& value);

} // namespace tarnbridge::json
