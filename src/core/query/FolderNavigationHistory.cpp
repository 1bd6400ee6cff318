#include "query/FolderNavigationHistory.h"


namespace tarnbridge {

void FolderNavigationHistory::reset(std::string path)
{
    current = std::move(path);
    back.clear();
    forward.clear();
}

void FolderNavigationHistory::visit(const std::string& path)
{
    if (current && *current == path)
        return;
    if (current) {
        back.push_back(*current);
        if (back.size() > kLimit)
            back.erase(back.begin());
    }
    current = path;
    forward.clear();
}

std::optional<std::string> FolderNavigationHistory::goBack()
{
    if (back.empty())
        return std::nullopt;
    std::string target = std::move(back.back());
    back.pop_back();
    if (current)
        forward.push_back(*current);
    current = target;
    return target;
}

std::optional<std::string> FolderNavigationHistory::goForward()
{
    if (forward.empty())
        return std::nullopt;
    std::string target = std::move(forward.back());
    forward.pop_back();
    if (current)
        back.push_back(*current);
    current = target;
    return target;
}

FolderNavigationHistory FolderNavigationHistory::resolvingPaths(
    const std::function<std::optional<std::string>(const std::string&)>& transform) const
{
    FolderNavigationHistory out;
    if (current)
        out.current = transform(*current);
    auto rebuild = [&](const std::vector<std::string>& from, std::vector<std::string>& to) {
        for (const std::string& entry : from) {
            std::optional<std::string> moved = transform(entry);
            if (!moved || (!to.empty() && to.back() == *moved))
                continue;
            to.push_back(std::move(*moved));
        }
        if (!to.empty() && out.current && to.back() == *out.current)
            to.pop_back();
    };
    rebuild(back, out.back);
    rebuild(forward, out.forward);
    return out;
}

} // namespace tarnbridge
