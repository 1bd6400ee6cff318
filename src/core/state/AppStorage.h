#pragma once

#include <QVariantMap>

#include <string>
#include <vector>

class QSettings;

namespace tarnbridge {

// Where the product keeps its state, and how the state of its former name is carried over.
namespace AppStorage {

// The state folder: $TARNBRIDGE_STATE_DIR when it is an absolute path (tests and separate
// installs), else resolve($XDG_DATA_HOME).
std::string directory();

// "Tarnbridge" in `dataFolder` if anything is there; else the former "Oarstitch" folder if it
// is a folder (used where it lies, not copied); else "Tarnbridge", made at the first write.
std::string resolve(const std::string& dataFolder);

// The six preference keys, in their order.
const std::vector<QString>& preferenceKeys();

// Copies each key that `into` lacks and `legacy` has. A value already present is never
// overwritten, whatever it is.
void migratePreferences(QSettings& into, const QVariantMap& legacy);

// The former product's preferences (~/.config/Oarstitch/Oarstitch.conf), empty without them.
QVariantMap legacyPreferences();

} // namespace AppStorage

} // namespace tarnbridge
