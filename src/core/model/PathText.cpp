#include "model/PathText.h"

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

int compare(std::string_view a, std::string_view b)
{
    if ((alreadyComposed(a) && alreadyComposed(b)) || !isValidUtf8(a) || !isValidUtf8(b))
        return byteCompare(a, b);
    // UTF-8 byte order is scalar order, so comparing the NFC forms byte by byte is enough.
    const QByteArray na = QString::fromUtf8(a.data(), qsizetype(a.size()))
                              .normalized(QString::NormalizationForm_C)
                              .toUtf8();
    const QByteArray nb = QString::fromUtf8(b.data(), qsizetype(b.size()))
                              .normalized(QString::NormalizationForm_C)
                              .toUtf8();
    return byteCompare(std::string_view(na.constData(), size_t(na.size())),
                       std::string_view(nb.constData(), size_t(nb.size())));
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
