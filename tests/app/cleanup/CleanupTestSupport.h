#pragma once

#include <gtest/gtest.h>

#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "../model/AppFixture.h"
#include "app/model/CleanupFlow.h"
#include "app/model/ScanSession.h"
#include "state/StateFiles.h"

// Readable texts in failure messages.
inline void PrintTo(const QString& text, std::ostream* out) { *out << '"' << text.toStdString() << '"'; }

namespace tarnbridge::test {

// Scans `root` through the model, as the user does, and waits for the result.
inline ::testing::AssertionResult scanned(AppFixture& f, const std::string& root)
{
    app::ScanSession& session = f.app().session();
    session.startScan(root);
    if (!waitUntil([&] { return !session.scanning(); }))
        return ::testing::AssertionFailure() << "the scan of " << root << " did not finish";
    if (!session.scan() || session.scan()->rootPath() != root)
        return ::testing::AssertionFailure() << "no scan of " << root << " was installed";
    return ::testing::AssertionSuccess();
}

// The records of `paths` in the model's current scan.
inline std::vector<DiskNode> records(AppFixture& f, const std::vector<std::string>& paths)
{
    std::vector<DiskNode> out;
    for (const std::string& path : paths) {
        const auto node = f.app().session().scan()->node(path);
        EXPECT_TRUE(node) << path << " is not in the scan";
        if (node)
            out.push_back(*node);
    }
    return out;
}

inline std::vector<std::string> paths(const std::vector<CleanupEntry>& entries)
{
    std::vector<std::string> out;
    for (const CleanupEntry& entry : entries)
        out.push_back(entry.node.path);
    return out;
}

inline std::vector<std::string> originals(const std::vector<TrashReceipt>& receipts)
{
    std::vector<std::string> out;
    for (const TrashReceipt& receipt : receipts)
        out.push_back(receipt.originalPath);
    return out;
}

inline std::set<std::string> receiptIds(const std::vector<TrashReceipt>& receipts)
{
    std::set<std::string> out;
    for (const TrashReceipt& receipt : receipts)
        out.insert(receipt.id);
    return out;
}

// What the state folder holds now, read as another program would.
inline AppState savedState(const AppFixture& f)
{
    return StateFiles(f.stateDirectory).load().state;
}

// Asks for the review of the whole queue and waits until it is ready (or refused).
inline ::testing::AssertionResult reviewed(AppFixture& f)
{
    app::CleanupFlow& flow = f.app().cleanup();
    flow.requestCleanup();
    if (!waitUntil([&] { return !flow.cleaning(); }))
        return ::testing::AssertionFailure() << "the review was not prepared";
    if (!flow.cleanupRequest())
        return ::testing::AssertionFailure() << "no review is open";
    return ::testing::AssertionSuccess();
}

} // namespace tarnbridge::test
