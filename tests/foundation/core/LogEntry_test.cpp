#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "RecordingLog.h"
#include "core/LogEntry.h"
#include "core/LogEntryCloser.h"
#include "core/LogEntryDistinctProgressWrapper.h"
#include "core/LogEntryProgressWrapper.h"

using namespace Vantu;
using SarvaneTest::RecordingLog;

TEST(LogEntry, WritesItsTextWhenItOpensAndKeepsItsState) {
    SmartPtr<RecordingLog> log = new RecordingLog;
    SmartPtr<LogEntry> entry = new LogEntry(log, u"Writing the transaction.", LogEntryCallInterface::Normal);
    ASSERT_EQ(log->Lines().size(), 1u);
    EXPECT_EQ(log->Lines()[0].text, u"Writing the transaction.");
    EXPECT_EQ(log->Lines()[0].severity, LogEntryCallInterface::Normal);
    EXPECT_NE(entry->GetDateTime(), DateTime::minimum);

    entry->SetField(u"slice", u"2");
    entry->SetField(u"path", u"/x");
    std::vector<std::u16string> names;
    entry->EnumFields(names);
    EXPECT_EQ(names, (std::vector<std::u16string>{u"path", u"slice"}));
    EXPECT_EQ(entry->GetField(u"slice"), u"2");
    EXPECT_EQ(entry->GetField(u"none"), u"");
    entry->SetComment(MessageInfo::FromText(u"half way"));
    EXPECT_EQ(entry->GetComment(), u"half way");

    {
        LogEntryCloser closer(entry, true);
    }
    EXPECT_TRUE(entry->IsClosed());
    EXPECT_TRUE(entry->IsCancelled());
    entry->Close();  // a second end changes nothing
    EXPECT_TRUE(entry->IsCancelled());

    SmartPtr<LogEntry> kept = new LogEntry(nullptr, u"kept open", LogEntryCallInterface::Error);
    {
        LogEntryCloser closer(kept, false);
        closer.Drop();
    }
    EXPECT_FALSE(kept->IsClosed());
}

TEST(LogEntry, ProgressWrappersMapTheirScaleOntoTheWrappedEntry) {
    SmartPtr<LogEntry> entry = new LogEntry(nullptr, u"Compacting the indexes.", LogEntryCallInterface::Normal);
    SmartPtr<LogEntryProgressWrapper> step = new LogEntryProgressWrapper(entry, 0.2, 0.6);
    step->SetProgress(0.5);
    EXPECT_DOUBLE_EQ(entry->GetProgress(), 0.5);
    EXPECT_DOUBLE_EQ(step->GetProgress(), 0.5);
    step->SetProgress(1.0);
    EXPECT_DOUBLE_EQ(entry->GetProgress(), 0.8);

    SmartPtr<LogEntryAverageProgressWrapper> average = new LogEntryAverageProgressWrapper(entry, 4);
    average->SetTrackProgress(2, 1.0);
    EXPECT_DOUBLE_EQ(entry->GetProgress(), 0.25);
    SmartPtr<LogEntryDistinctProgressWrapper> track = new LogEntryDistinctProgressWrapper(average, 1);
    track->SetProgress(0.5);
    EXPECT_DOUBLE_EQ(entry->GetProgress(), 0.375);
    EXPECT_DOUBLE_EQ(track->GetProgress(), 0.5);

    // Nested as compaction nests them: a step of the whole, split into tracks.
    SmartPtr<LogEntry> whole = new LogEntry(nullptr, u"whole", LogEntryCallInterface::Normal);
    SmartPtr<LogEntryAverageProgressWrapper> slices =
        new LogEntryAverageProgressWrapper(new LogEntryProgressWrapper(whole, 0.2, 0.6), 2);
    std::vector<std::thread> workers;
    for (unsigned i = 0; i < 2; ++i)
        workers.emplace_back([&, i] {
            SmartPtr<LogEntryDistinctProgressWrapper> mine = new LogEntryDistinctProgressWrapper(slices, i);
            for (int k = 1; k <= 100; ++k) mine->SetProgress(k / 100.0);
        });
    for (auto& w : workers) w.join();
    EXPECT_DOUBLE_EQ(whole->GetProgress(), 0.8);

    SmartPtr<LogEntryDistinctProgressWrapper> plain = new LogEntryDistinctProgressWrapper(whole, 3);
    plain->SetProgress(0.1);  // not an average: forwarded as it is
    EXPECT_DOUBLE_EQ(whole->GetProgress(), 0.1);
    plain->Close();
    EXPECT_TRUE(whole->IsClosed());
}
