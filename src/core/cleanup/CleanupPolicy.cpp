#include "cleanup/CleanupPolicy.h"

#include <QString>

#include <algorithm>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "model/FileIdentity.h"
#include "model/PathText.h"
#include "model/ScanPaths.h"
#include "model/TextEncoding.h"
#include "platform/FileFacts.h"
#include "platform/FileIO.h"
#include "platform/RunningPrograms.h"

namespace tarnbridge {

namespace {

// Paths compare as canonically equivalent text: a composed and a decomposed name are one.
std::string canonical(std::string_view path)
{
    bool plain = true;
    for (unsigned char c : path)
        plain = plain && c < 0xCC;
    if (plain || !isValidUtf8(path))
        return std::string(path);
    return QString::fromUtf8(path.data(), qsizetype(path.size()))
        .normalized(QString::NormalizationForm_C)
        .toStdString();
}

bool endsInApp(std::string_view name)
{
    return QString::fromUtf8(name.data(), qsizetype(name.size())).toLower().endsWith(QStringLiteral(".app"));
}

std::vector<std::string_view> pieces(std::string_view path)
{
    std::vector<std::string_view> out;
    std::size_t i = 0;
    while (i < path.size()) {
        const std::size_t j = std::min(path.find('/', i), path.size());
        if (j > i)
            out.push_back(path.substr(i, j - i));
        i = j + 1;
    }
    return out;
}

// "…/flatpak/app/ID/…" below /var/lib or the user's data folder: an installed Flatpak.
bool insideFlatpakDeployment(const std::string& target, const std::string& home)
{
    const char* dataHome = std::getenv("XDG_DATA_HOME");
    const std::string userData = dataHome && *dataHome ? std::string(dataHome) : home + "/.local/share";
    for (const std::string& base : {std::string("/var/lib/flatpak/app/"), userData + "/flatpak/app/"}) {
        if (target.size() > base.size() && target.compare(0, base.size(), base) == 0) {
            // Below the application's own folder, not the folder itself.
            return target.find('/', base.size()) != std::string::npos;
        }
    }
    return false;
}

// CFBundleIdentifier from an XML Info.plist, for application bundles copied from a Mac.
std::optional<std::string> bundleIdentifier(const std::string& app)
{
    std::ifstream in(app + "/Contents/Info.plist");
    if (!in)
        return std::nullopt;
    std::stringstream text;
    text << in.rdbuf();
    const std::string plist = text.str();
    const auto key = plist.find("<key>CFBundleIdentifier</key>");
    if (key == std::string::npos)
        return std::nullopt;
    const auto open = plist.find("<string>", key);
    const auto close = plist.find("</string>", open);
    if (open == std::string::npos || close == std::string::npos)
        return std::nullopt;
    return plist.substr(open + 8, close - open - 8);
}

bool within(const std::string& path, const std::string& folder)
{
    return path == folder || PathText::contains(path, folder);
}

} // namespace

bool CleanupPolicy::isProtectedSystemApp(const std::string& folder)
{
    if (!endsInApp(PathText::name(folder)))
        return false;
    const auto identifier = bundleIdentifier(folder);
    return identifier && identifier->rfind("com.apple.", 0) == 0;
}

std::vector<std::string> CleanupPolicy::protectedPaths() const
{
    std::vector<std::string> list{"/System", "/bin", "/sbin", "/usr", "/private", "/dev", "/Library"};
    for (const char* below : {"/.Trash", "/.ssh", "/.gnupg", "/Library/Keychains", "/Library/Mail",
                              "/Library/Messages", "/Library/Accounts", "/Library/CloudStorage",
                              "/Library/Mobile Documents", "/Library/Application Support/Tarnbridge"})
        list.push_back(home + below);
    // Linux places, after the common ones.
    for (const char* top : {"/etc", "/boot", "/efi", "/proc", "/sys", "/run", "/lib", "/lib32", "/lib64",
                            "/libx32", "/var/lib", "/var/spool", "/snap"})
        list.emplace_back(top);
    for (const char* below : {"/.local/share/Trash", "/.local/share/keyrings", "/.pki", "/.password-store",
                              "/.mozilla", "/.thunderbird", "/.local/share/evolution", "/.local/share/Tarnbridge",
                              "/.config/Tarnbridge"})
        list.push_back(home + below);
    return list;
}

std::vector<std::string> CleanupPolicy::rootFolders() const
{
    std::vector<std::string> list{"/", "/Users", "/Applications", "/Volumes", home, home + "/Library",
                                  home + "/Library/Application Support", home + "/Library/Containers",
                                  home + "/Library/Preferences"};
    for (const char* top : {"/home", "/media", "/mnt", "/srv", "/opt", "/var"})
        list.emplace_back(top);
    for (const char* below : {"/.config", "/.local", "/.local/share"})
        list.push_back(home + below);
    return list;
}

std::optional<std::string> CleanupPolicy::rejection(std::string_view path) const
{
    // 1. Normalise, and resolve every link on the way.
    const std::string standard = ScanPaths::normalize(path);
    std::string target = platform::resolvedPath(standard);

    // 2–4. A data-volume spelling of the same file is no link (only where the system has one).
    const std::string& dataRoot = ScanPaths::linuxProfile().dataRoot;
    bool dataAlias = false;
    if (!dataRoot.empty() && standard.size() > dataRoot.size() &&
        standard.compare(0, dataRoot.size() + 1, dataRoot + "/") == 0 &&
        standard.substr(dataRoot.size()) == target)
        dataAlias = true;
    if (target != standard && !dataAlias)
        return kRefusedLink;

    const std::string canonicalTarget = canonical(target);
    const std::string canonicalHome = canonical(home);

    // 5. Inside an application: a bundle by its name, or an installed Flatpak.
    const auto parts = pieces(canonicalTarget);
    for (std::size_t i = 0; i + 1 < parts.size(); ++i)
        if (endsInApp(parts[i]))
            return kRefusedAppContents;
    if (insideFlatpakDeployment(canonicalTarget, canonicalHome))
        return kRefusedAppContents;

    // 6. A protected application of the other platform's system.
    if (!parts.empty() && endsInApp(parts.back())) {
        const auto identifier = bundleIdentifier(target);
        if (identifier && identifier->rfind("com.apple.", 0) == 0)
            return kRefusedSystemApp;
    }

    // 7. Protected paths, both ways: what contains one is as protected as the path itself.
    for (const std::string& entry : protectedPaths()) {
        const std::string p = canonical(entry);
        if (within(canonicalTarget, p) || PathText::contains(p, canonicalTarget))
            return kRefusedProtected;
    }

    // 8. Root folders themselves; their contents stay allowed.
    for (const std::string& entry : rootFolders())
        if (canonicalTarget == canonical(entry))
            return kRefusedRootFolder;

    // 9. The program itself.
    for (const std::string& self : platform::ownExecutables())
        if (canonicalTarget == canonical(self))
            return kRefusedSelf;

    // 10. File flags.
    return fileProtection(target);
}

std::optional<std::string> CleanupPolicy::fileProtection(const std::string& path)
{
    try {
        const FileStat stat = platform::statPath(path);
        if (stat.systemProtected)
            return kRefusedSystemFlag;
        // Linux has no flag a user sets to lock a file, so the "locked" refusal never applies here.
        return std::nullopt;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

} // namespace tarnbridge
