#include "model/PathText.h"

#include <algorithm>

#include <QString>

#include "model/TextEncoding.h"

namespace tarnbridge::PathText {

std::string_view name(std::string_view path)
{
    while (!path.empty() && path.back() == '/')
        path.remove_suffix(1);
    if (path.empty())
        return "/";
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string_view pathExtension(std::string_view path)
{
    const std::string_view base = name(path);
    const auto dot = base.rfind('.');
    if (dot == std::string_view::npos || dot == 0)
        return {};
    return base.substr(dot + 1);
}

bool contains(std::string_view path, std::string_view root)
{
    if (path == root)
        return true;
    if (root == "/")
        return !path.empty() && path.front() == '/';
    return path.size() > root.size() && path.substr(0, root.size()) == root &&
           path[root.size()] == '/';
}

namespace {
// Every code point below U+0300 is stable under NFC and composes with nothing before it; in
// UTF-8 those are exactly the sequences whose bytes all stay below 0xCC.
bool alreadyComposed(std::string_view text)
{
    for (unsigned char c : text)
        if (c >= 0xCC)
            return false;
    return true;
}
int byteCompare(std::string_view a, std::string_view b)
{
    const int c = a.compare(b);
    return c < 0 ? -1 : (c > 0 ? 1 : 0);
}
} // namespace

namespace {
// NFC of each stretch of valid UTF-8, stray bytes kept as they are: UTF-8 byte order of the
// result is scalar order, and a stray byte anywhere in a path does not change how the rest of
// it compares. '/' never composes, so comparing two names this way agrees with comparing the
// paths they end.
std::string normalizedForOrder(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    const auto* s = reinterpret_cast<const unsigned char*>(text.data());
    std::size_t i = 0;
    while (i < text.size()) {
        std::size_t run = i;
        while (run < text.size()) {
            const std::size_t length = utf8SequenceLength(s + run, text.size() - run);
            if (length == 0)
                break;
            run += length;
        }
        if (run > i) {
            const QByteArray composed = QString::fromUtf8(text.data() + i, qsizetype(run - i))
                                            .normalized(QString::NormalizationForm_C)
                                            .toUtf8();
            out.append(composed.constData(), std::size_t(composed.size()));
        }
        if (run < text.size())
            out.push_back(text[run++]);
        i = run;
    }
    return out;
}
} // namespace

int compare(std::string_view a, std::string_view b)
{
    // Paths share long prefixes: find where they part, and look for text that normalisation
    // could change only from there on. The common prefix normalises alike in both.
    const std::size_t common = std::min(a.size(), b.size());
    std::size_t i = 0;
    while (i < common && a[i] == b[i])
        ++i;
    if (i == common)
        return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
    if (alreadyComposed(a.substr(i)) && alreadyComposed(b.substr(i)))
        return static_cast<unsigned char>(a[i]) < static_cast<unsigned char>(b[i]) ? -1 : 1;
    const std::string na = normalizedForOrder(a), nb = normalizedForOrder(b);
    return byteCompare(na, nb);
}

std::string join(std::string_view parent, std::string_view name)
{
    std::string out;
    out.reserve(parent.size() + 1 + name.size());
    out.append(parent);
    if (out.empty() || out.back() != '/')
        out.push_back('/');
    out.append(name);
    return out;
}

} // namespace tarnbridge::PathText
