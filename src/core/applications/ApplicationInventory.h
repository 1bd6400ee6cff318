#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "applications/ApplicationOwnership.h"
#include "model/CancellationFlag.h"
#include "model/DiskNode.h"
#include "model/ScanResult.h"

namespace tarnbridge {

// One item of the user's folders tied to an application.
struct AppSupportFile {
    DiskNode node; // the root record of `scan`
    ScanResult scan;
    std::string match;     // how sure the tie is: one of the kMatch… texts
    std::string category;  // what kind of data it is, by the folder it lies in
    bool isShared = false; // another installed application has a claim on it too

    const std::string& id() const { return node.path; }
};

struct InstalledApplication {
    std::string path; // the bundle: the root of `bundleScan`
    std::string name;
    std::string bundleID; // the desktop-file id
    std::string version = "—";
    ApplicationKind kind = ApplicationKind::system;
    std::string entryPath;
    std::string icon;
    std::optional<std::int64_t> lastUsed; // seconds since the Unix epoch
    ScanResult bundleScan;
    std::vector<AppSupportFile> support; // largest first

    const std::string& id() const { return path; }
    // The bundle and every tied item, shared ones included.
    std::int64_t bytes() const;
    std::int64_t supportBytes() const;
    // Part of the operating system's own installation, hidden unless asked for.
    bool isSystem() const;
};

// An item that looks like the data of an application that is gone.
struct OrphanCandidate {
    DiskNode node;
    ScanResult scan;
    std::string bundleID; // the identifier of the missing application the name suggests
    std::string category;

    const std::string& id() const { return node.path; }
};

struct ApplicationReport {
    std::vector<InstalledApplication> apps; // largest first
    std::vector<OrphanCandidate> orphans;   // largest first
    std::vector<std::string> issues;        // what could not be read
};

// System folders that package managers own; tests point them into a private tree.
struct SystemFolders {
    std::string flatpak = "/var/lib/flatpak";
    std::string snapd = "/var/lib/snapd";
    std::string snapMount = "/snap";
};

// Every folder the inventory reads.
struct InventoryPlaces {
    std::string home;
    std::string dataHome;
    std::string configHome;
    std::string cacheHome;
    std::string stateHome;
    std::vector<std::string> dataDirs;    // $XDG_DATA_DIRS
    std::vector<std::string> programPath; // $PATH, to find an Exec program given by name
    std::string locale;                   // for localised names: LC_ALL, LC_MESSAGES or LANG
    SystemFolders system;

    // From $HOME and the XDG variables with their standard defaults.
    static InventoryPlaces fromEnvironment(SystemFolders system = {});

    // The folders holding desktop entries, the first of an id winning.
    std::vector<std::string> applicationFolders() const;
};

// Finds installed applications, measures them, ties the user's data folders to them and lists
// data that no installed application claims. Reads only; changes nothing.
class ApplicationInventory {
public:
    using Ownership = std::function<ApplicationOwnership(const DesktopApplication&)>;
    // The name of the application now measured and how many are done; called on the caller's
    // thread.
    using Progress = std::function<void(const std::string& name, int finished)>;

    explicit ApplicationInventory(Ownership ownership = ApplicationOwnership::read);

    // Throws CancellationError only; everything that cannot be read goes into `issues`.
    ApplicationReport inspect(const InventoryPlaces& places, const CancellationFlag& cancellation,
                              const Progress& progress = {}) const;

    // A scan of one item: the whole tree of a folder, or one record of anything else (a
    // symbolic link measured as itself). Throws what the stat or the scanner throws.
    static ScanResult scanItem(const std::string& path, const CancellationFlag& cancellation);

private:
    Ownership ownership_;
};

// How sure a tie is, most sure first; "shared" replaces any of them.
inline constexpr const char* kMatchIdentifier = "Bundle identifier";
inline constexpr const char* kMatchKnownProduct = "Known product data directory";
inline constexpr const char* kMatchName = "App name · verify ownership";
inline constexpr const char* kMatchShared = "Shared with another installed app";

} // namespace tarnbridge
