#include "storage/JsonValue.h"

#include <fcntl.h>
#include <unistd.h>

#include <charconv>
#include <cmath>
#include <limits>

#include "model/Errors.h"
#include "storage/JsonEscape.h"
#include "storage/ScanJson.h"

namespace tarnbridge::json {

namespace {

[[noreturn]] void wrongType(std::string_view what)
{
    throw TarnbridgeError(std::string(what) + " has the wrong type.");
}

} // namespace

bool Value::boolean(std::string_view what) const
{
    if (type_ != Type::boolean)
        wrongType(what);
    return boolean_;
}

std::int64_t Value::integer(std::string_view what) const
{
    std::int64_t v = 0;
    if (type_ != Type::number)
        wrongType(what);
    const auto [end, error] = std::from_chars(text_.data(), text_.data() + text_.size(), v);
    if (error != std::errc() || end != text_.data() + text_.size()) {
        // Some writers put whole numbers as 12.0 or 1e3.
        const double d = number(what);
        if (d != std::floor(d) || d < -9.2e18 || d > 9.2e18)
            wrongType(what);
        return std::int64_t(d);
    }
    return v;
}

std::uint64_t Value::unsignedInteger(std::string_view what) const
{
    std::uint64_t v = 0;
    if (type_ != Type::number)
        wrongType(what);
    const auto [end, error] = std::from_chars(text_.data(), text_.data() + text_.size(), v);
    if (error != std::errc() || end != text_.data() + text_.size())
        wrongType(what);
    return v;
}

double Value::number(std::string_view what) const
{
    double v = 0;
    if (type_ != Type::number)
        wrongType(what);
    const auto [end, error] = std::from_chars(text_.data(), text_.data() + text_.size(), v);
    if (error != std::errc() || end != text_.data() + text_.size() || !std::isfinite(v))
        wrongType(what);
    return v;
}

const std::string& Value::string(std::string_view what) const
{
    if (type_ != Type::string)
        wrongType(what);
    return text_;
}

const std::vector<Value>& Value::array(std::string_view what) const
{
    if (type_ != Type::array)
        wrongType(what);
    return items_;
}

const std::vector<std::pair<std::string, Value>>& Value::members(std::string_view what) const
{
    if (type_ != Type::object)
        wrongType(what);
    return members_;
}

const Value* Value::find(std::string_view key) const
{
    for (const auto& [name, value] : members_)
        if (name == key)
            return &value;
    return nullptr;
}

const Value& Value::at(std::string_view key) const
{
    if (type_ != Type::object)
        throw TarnbridgeError("An object was expected where \"" + std::string(key) + "\" should be.");
    if (const Value* v = find(key))
        return *v;
    throw TarnbridgeError(keyText(key) + " is missing.");
}

class Parser {
public:
    explicit Parser(std::string_view text) : s_(text) {}

    Value document()
    {
        Value v = value(0);
        skipSpace();
        if (i_ != s_.size())
            fail();
        return v;
    }

private:
    static constexpr int kMaxDepth = 256;

    [[noreturn]] void fail() const
    {
        throw TarnbridgeError("The data is not valid JSON (at byte " + std::to_string(i_) + ").");
    }
    void skipSpace()
    {
        while (i_ < s_.size() && (s_[i_] == ' ' || s_[i_] == '\n' || s_[i_] == '\r' || s_[i_] == '\t'))
            ++i_;
    }
    bool literal(std::string_view word)
    {
        if (s_.substr(i_, word.size()) != word)
            return false;
        i_ += word.size();
        return true;
    }
    std::string stringBody()
    {
        // The closing quote first, so the unescaper never runs past the text.
        std::size_t j = i_ + 1;
        while (j < s_.size() && s_[j] != '"')
            j += s_[j] == '\\' ? 2 : 1;
        if (j >= s_.size())
            fail();
        std::string out;
        if (!unescape(s_.data() + i_ + 1, out))
            fail();
        i_ = j + 1;
        return out;
    }
    Value value(int depth)
    {
        if (depth > kMaxDepth)
            fail();
        skipSpace();
        if (i_ >= s_.size())
            fail();
        Value v;
        const char c = s_[i_];
        if (c == '{') {
            v.type_ = Value::Type::object;
            ++i_;
            skipSpace();
            if (i_ < s_.size() && s_[i_] == '}') {
                ++i_;
                return v;
            }
            for (;;) {
                skipSpace();
                if (i_ >= s_.size() || s_[i_] != '"')
                    fail();
                std::string key = stringBody();
                skipSpace();
                if (i_ >= s_.size() || s_[i_] != ':')
                    fail();
                ++i_;
                v.members_.emplace_back(std::move(key), value(depth + 1));
                skipSpace();
                if (i_ < s_.size() && s_[i_] == ',') {
                    ++i_;
                    continue;
                }
                if (i_ < s_.size() && s_[i_] == '}') {
                    ++i_;
                    return v;
                }
                fail();
            }
        }
        if (c == '[') {
            v.type_ = Value::Type::array;
            ++i_;
            skipSpace();
            if (i_ < s_.size() && s_[i_] == ']') {
                ++i_;
                return v;
            }
            for (;;) {
                v.items_.push_back(value(depth + 1));
                skipSpace();
                if (i_ < s_.size() && s_[i_] == ',') {
                    ++i_;
                    continue;
                }
                if (i_ < s_.size() && s_[i_] == ']') {
                    ++i_;
                    return v;
                }
                fail();
            }
        }
        if (c == '"') {
            v.type_ = Value::Type::string;
            v.text_ = stringBody();
            return v;
        }
        if (literal("true")) {
            v.type_ = Value::Type::boolean;
            v.boolean_ = true;
            return v;
        }
        if (literal("false")) {
            v.type_ = Value::Type::boolean;
            return v;
        }
        if (literal("null"))
            return v;
        const std::size_t start = i_;
        while (i_ < s_.size() && (std::isdigit(static_cast<unsigned char>(s_[i_])) || s_[i_] == '-' ||
                                  s_[i_] == '+' || s_[i_] == '.' || s_[i_] == 'e' || s_[i_] == 'E'))
            ++i_;
        if (i_ == start)
            fail();
        v.type_ = Value::Type::number;
        v.text_.assign(s_.substr(start, i_ - start));
        return v;
    }

    std::string_view s_;
    std::size_t i_ = 0;
};

Value parse(std::string_view text)
{
    return Parser(text).document();
}

void Writer::separate()
{
    if (needComma_)
        out_.push_back(',');
    needComma_ = true;
}

Writer& Writer::beginObject()
{
    separate();
    out_.push_back('{');
    needComma_ = false;
    return *this;
}

Writer& Writer::endObject()
{
    out_.push_back('}');
    needComma_ = true;
    return *this;
}

Writer& Writer::beginArray()
{
    separate();
    out_.push_back('[');
    needComma_ = false;
    return *this;
}

Writer& Writer::endArray()
{
    out_.push_back(']');
    needComma_ = true;
    return *this;
}

Writer& Writer::key(std::string_view name)
{
    separate();
    ScanJson::appendString(out_, name);
    out_.push_back(':');
    needComma_ = false;
    return *this;
}

Writer& Writer::string(std::string_view bytes)
{
    separate();
    ScanJson::appendString(out_, bytes);
    return *this;
}

Writer& Writer::integer(std::int64_t value)
{
    separate();
    out_.append(std::to_string(value));
    return *this;
}

Writer& Writer::unsignedInteger(std::uint64_t value)
{
    separate();
    out_.append(std::to_string(value));
    return *this;
}

Writer& Writer::number(double value)
{
    separate();
    if (!std::isfinite(value))
        value = 0;
    char digits[32];
    const auto result = std::to_chars(digits, digits + sizeof digits, value);
    out_.append(digits, result.ptr);
    return *this;
}

Writer& Writer::boolean(bool value)
{
    separate();
    out_.append(value ? "true" : "false");
    return *this;
}

Writer& Writer::date(double unixSeconds)
{
    return number(unixSeconds - ScanJson::kReferenceDateOffset);
}

double readDate(const Value& value, std::string_view what)
{
    return value.number(what) + ScanJson::kReferenceDateOffset;
}

void write(Writer& w, const FileIdentity& id)
{
    w.beginObject();
    w.key("device").integer(id.device);
    w.key("inode").unsignedInteger(id.inode);
    w.key("size").integer(id.size);
    w.key("modifiedSeconds").integer(id.modifiedSeconds);
    w.key("modifiedNanos").integer(id.modifiedNanos);
    w.key("changedSeconds").integer(id.changedSeconds);
    w.key("changedNanos").integer(id.changedNanos);
    w.key("mode").integer(id.mode);
    w.key("linkCount").integer(id.linkCount);
    w.endObject();
}

namespace {

std::int64_t ranged(const Value& object, const char* key, std::int64_t low, std::int64_t high)
{
    const std::int64_t v = object.integerAt(key);
    if (v < low || v > high)
        throw TarnbridgeError(Value::keyText(key) + " is out of range.");
    return v;
}

std::int64_t wholeDate(const Value& object, const char* key)
{
    return std::llround(dateAt(object, key));
}

} // namespace

FileIdentity readIdentity(const Value& v)
{
    constexpr auto kMax = std::numeric_limits<std::int64_t>::max();
    constexpr auto kMin = std::numeric_limits<std::int64_t>::min();
    FileIdentity id;
    id.device = std::int32_t(ranged(v, "device", INT32_MIN, INT32_MAX));
    id.inode = v.unsignedIntegerAt("inode");
    id.size = ranged(v, "size", kMin, kMax);
    id.modifiedSeconds = ranged(v, "modifiedSeconds", kMin, kMax);
    id.modifiedNanos = ranged(v, "modifiedNanos", kMin, kMax);
    id.changedSeconds = ranged(v, "changedSeconds", kMin, kMax);
    id.changedNanos = ranged(v, "changedNanos", kMin, kMax);
    id.mode = std::uint16_t(ranged(v, "mode", 0, 65535));
    id.linkCount = std::uint16_t(ranged(v, "linkCount", 0, 65535));
    return id;
}

void write(Writer& w, const DiskNode& n)
{
    w.beginObject();
    w.key("path").string(n.path);
    if (n.parent)
        w.key("parent").string(*n.parent);
    w.key("isDirectory").boolean(n.isDirectory);
    w.key("isSymbolicLink").boolean(n.isSymbolicLink);
    w.key("isCloudPlaceholder").boolean(n.isCloudPlaceholder);
    w.key("logicalSize").integer(n.logicalSize);
    w.key("allocatedSize").integer(n.allocatedSize);
    w.key("ownLogicalSize").integer(n.ownLogicalSize);
    w.key("ownAllocatedSize").integer(n.ownAllocatedSize);
    w.key("compressedSavings").integer(n.compressedSavings);
    w.key("fileCount").integer(n.fileCount);
    w.key("folderCount").integer(n.folderCount);
    w.key("children").beginArray();
    for (const auto& child : n.children)
        w.string(child);
    w.endArray();
    w.key("created").integer(n.created - std::int64_t(ScanJson::kReferenceDateOffset));
    w.key("modified").integer(n.modified - std::int64_t(ScanJson::kReferenceDateOffset));
    w.key("accessed").integer(n.accessed - std::int64_t(ScanJson::kReferenceDateOffset));
    w.key("identity");
    write(w, n.identity);
    w.endObject();
}

DiskNode readNode(const Value& v)
{
    constexpr auto kMax = std::numeric_limits<std::int64_t>::max();
    constexpr auto kMin = std::numeric_limits<std::int64_t>::min();
    DiskNode n;
    n.path = v.stringAt("path");
    if (const Value* parent = v.find("parent"); parent && parent->type() != Value::Type::null)
        n.parent = parent->string(Value::keyText("parent"));
    n.isDirectory = v.booleanAt("isDirectory");
    n.isSymbolicLink = v.booleanAt("isSymbolicLink");
    n.isCloudPlaceholder = v.booleanAt("isCloudPlaceholder");
    n.logicalSize = ranged(v, "logicalSize", kMin, kMax);
    n.allocatedSize = ranged(v, "allocatedSize", kMin, kMax);
    n.ownLogicalSize = ranged(v, "ownLogicalSize", kMin, kMax);
    n.ownAllocatedSize = ranged(v, "ownAllocatedSize", kMin, kMax);
    n.compressedSavings = ranged(v, "compressedSavings", kMin, kMax);
    n.fileCount = ranged(v, "fileCount", kMin, kMax);
    n.folderCount = ranged(v, "folderCount", kMin, kMax);
    for (const Value& child : v.arrayAt("children"))
        n.children.push_back(child.string("A child path"));
    n.created = wholeDate(v, "created");
    n.modified = wholeDate(v, "modified");
    n.accessed = wholeDate(v, "accessed");
    n.identity = readIdentity(v.at("identity"));
    return n;
}

} // namespace tarnbridge::json
