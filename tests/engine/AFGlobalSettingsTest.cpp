#include "ScopedEnvironment.h"
#include "TempFolder.h"
#include "TestHost.h"

#include "engine/AFGlobalOptions.h"
#include "engine/AFGlobalSettings.h"
#include "state/AFSettingsStore.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace {

// A store that remembers the order of what was asked of it.
class RecordingStore : public AFSettingsStore {
public:
    using AFSettingsStore::AFSettingsStore;
    bool read(const std::string& key, int32_t& value) const override {
        reads.push_back(key);
        return AFSettingsStore::read(key, value);
    }
    void write(const std::string& key, int32_t value) override {
        writes.push_back(key);
        AFSettingsStore::write(key, value);
    }
    mutable std::vector<std::string> reads;
    std::vector<std::string> writes;
};

class AFGlobalSettingsTest : public ::testing::Test {
protected:
    std::string file() const { return folder.path("Orvanto/Orvanto.conf"); }
    static void expectDefaults(const AFGlobalOptions& o) {
        EXPECT_TRUE(o.dynamicSigFlow);
        EXPECT_FALSE(o.offOnTop);
        EXPECT_FALSE(o.resetAfterLoad);
        EXPECT_TRUE(o.ccRecallLock);
        EXPECT_FALSE(o.midiOut);
        EXPECT_FALSE(o.syncedHostStop);
        EXPECT_TRUE(o.ignorePrgChange);
        EXPECT_FALSE(o.bypassLock);
        EXPECT_TRUE(o.dynamicSigFlowPP);
        EXPECT_FALSE(o.offOnTopPP);
        EXPECT_FALSE(o.resetAfterLoadPP);
        EXPECT_FALSE(o.thresholdPP);
        EXPECT_FALSE(o.ccRecallLockPP);
        EXPECT_FALSE(o.midiOutPP);
        EXPECT_EQ(o.threshold.load(), 0.01f);
    }

    TempFolder folder;
};

TEST_F(AFGlobalSettingsTest, ReadsAndWritesInTheFixedOrder) {
    RecordingStore store(file());
    AFGlobalOptions options;
    AFGlobalSettings::read(store, options);
    const std::vector<std::string> readOrder = {
        "CCRecallLock",     "dynamicsigflow",   "resetafterload", "offontop",     "CCRecallLockPP",
        "dynamicsigflowPP", "resetafterloadPP", "offontopPP",     "ThreshholdPP", "ignorePrgChange",
        "bypasslock",       "syncedhoststop",   "MIDI out",       "MIDI outPP",   "Threshhold"};
    EXPECT_EQ(store.reads, readOrder);
    AFGlobalSettings::write(store, options);
    const std::vector<std::string> writeOrder = {
        "Threshhold",     "CCRecallLock",    "dynamicsigflow",   "resetafterload",   "offontop",
        "ThreshholdPP",   "CCRecallLockPP",  "dynamicsigflowPP", "resetafterloadPP", "offontopPP",
        "syncedhoststop", "ignorePrgChange", "bypasslock",       "MIDI out",         "MIDI outPP"};
    EXPECT_EQ(store.writes, writeOrder);
}

TEST_F(AFGlobalSettingsTest, AnEmptyStoreGivesTheDefaultsAndEveryOptionSurvivesARoundTrip) {
    AFGlobalOptions fresh;
    fresh.dynamicSigFlow = false;
    fresh.ignorePrgChange = false;
    fresh.threshold = 0.5f;
    AFGlobalSettings::read(AFSettingsStore(file()), fresh);
    expectDefaults(fresh);

    AFGlobalOptions changed;
    for (auto* flag :
         {&changed.dynamicSigFlow, &changed.offOnTop, &changed.resetAfterLoad, &changed.ccRecallLock,
          &changed.midiOut, &changed.syncedHostStop, &changed.ignorePrgChange, &changed.bypassLock,
          &changed.dynamicSigFlowPP, &changed.offOnTopPP, &changed.resetAfterLoadPP, &changed.thresholdPP,
          &changed.ccRecallLockPP, &changed.midiOutPP})
        flag->store(!flag->load());
    changed.threshold = 0.03f;
    {
        AFSettingsStore store(file());
        AFGlobalSettings::write(store, changed);
    }
    AFGlobalOptions loaded;
    AFGlobalSettings::read(AFSettingsStore(file()), loaded);
    EXPECT_FALSE(loaded.dynamicSigFlow);
    EXPECT_TRUE(loaded.offOnTop);
    EXPECT_TRUE(loaded.resetAfterLoad);
    EXPECT_FALSE(loaded.ccRecallLock);
    EXPECT_TRUE(loaded.midiOut);
    EXPECT_TRUE(loaded.syncedHostStop);
    EXPECT_FALSE(loaded.ignorePrgChange);
    EXPECT_TRUE(loaded.bypassLock);
    EXPECT_FALSE(loaded.dynamicSigFlowPP);
    EXPECT_TRUE(loaded.offOnTopPP);
    EXPECT_TRUE(loaded.resetAfterLoadPP);
    EXPECT_TRUE(loaded.thresholdPP);
    EXPECT_TRUE(loaded.ccRecallLockPP);
    EXPECT_TRUE(loaded.midiOutPP);
    EXPECT_EQ(loaded.threshold.load(), 0.03f);
}

TEST_F(AFGlobalSettingsTest, ThresholdHundredths) {
    for (int32_t stored : {1, 2, 3, 4})
        EXPECT_EQ(AFGlobalSettings::thresholdFromStored(stored), static_cast<float>(stored * 0.01)) << stored;
    for (int32_t stored :
         {0, 5, -1, 100, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()})
        EXPECT_EQ(AFGlobalSettings::thresholdFromStored(stored), 0.01f) << stored;
    // Every value the menu offers comes back as itself at the next start.
    for (int32_t stored : {1, 2, 3, 4})
        EXPECT_EQ(AFGlobalSettings::thresholdToStored(AFGlobalSettings::thresholdFromStored(stored)), stored);
    EXPECT_EQ(AFGlobalSettings::thresholdToStored(0.025f), 2);
    EXPECT_EQ(AFGlobalSettings::thresholdToStored(0.0f), 0);
    EXPECT_EQ(AFGlobalSettings::thresholdToStored(std::nanf("")), 0);
    EXPECT_EQ(AFGlobalSettings::thresholdToStored(std::numeric_limits<float>::infinity()), 0);
    EXPECT_EQ(AFGlobalSettings::thresholdToStored(1.0e30f), 0);
}

TEST_F(AFGlobalSettingsTest, HostileStoredValues) {
    TempFolder::writeText(file(), "[Orvanto]\n"
                                  "offontop=7\n"
                                  "dynamicsigflow=\"no\"\n"
                                  "ignorePrgChange=0\n"
                                  "Threshhold=\"3\"\n");
    AFGlobalOptions options;
    AFGlobalSettings::read(AFSettingsStore(file()), options);
    EXPECT_TRUE(options.offOnTop);
    EXPECT_TRUE(options.dynamicSigFlow);
    EXPECT_FALSE(options.ignorePrgChange);
    EXPECT_EQ(options.threshold.load(), 0.01f);
}

TEST_F(AFGlobalSettingsTest, TheClientReadsAtStartAndWritesAtClose) {
    const ScopedEnvironment config("XDG_CONFIG_HOME", folder.path().c_str());
    const ScopedEnvironment data("XDG_DATA_HOME", folder.path("data").c_str());
    {
        AFSettingsStore store;
        store.write("Threshhold", 5);
        store.write("syncedhoststop", 1);
    }
    {
        TestHost host;
        EXPECT_EQ(host.client().getOptions().threshold.load(), 0.01f);
        EXPECT_TRUE(host.client().getOptions().syncedHostStop);
        host.client().getOptions().threshold = 0.04f;
        host.client().getOptions().syncedHostStop = false;
    }
    int32_t threshold = 0;
    int32_t synced = 1;
    AFSettingsStore store;
    store.read("Threshhold", threshold);
    store.read("syncedhoststop", synced);
    EXPECT_EQ(threshold, 4);
    EXPECT_EQ(synced, 0);
    TestHost next;
    EXPECT_EQ(next.client().getOptions().threshold.load(), 0.04f);
    EXPECT_FALSE(next.client().getOptions().syncedHostStop);
}

TEST_F(AFGlobalSettingsTest, OfTwoInstancesTheOneClosedLastDecides) {
    const ScopedEnvironment config("XDG_CONFIG_HOME", folder.path().c_str());
    const ScopedEnvironment data("XDG_DATA_HOME", folder.path("data").c_str());
    for (const bool firstClosesLast : {true, false}) {
        auto first = std::make_unique<TestHost>();
        auto second = std::make_unique<TestHost>();
        first->client().getOptions().offOnTop = true;
        first->client().getOptions().threshold = 0.02f;
        second->client().getOptions().offOnTop = false;
        second->client().getOptions().threshold = 0.03f;
        if (firstClosesLast) {
            second.reset();
            first.reset();
        } else {
            first.reset();
            second.reset();
        }
        TestHost next;
        EXPECT_EQ(next.client().getOptions().offOnTop.load(), firstClosesLast);
        EXPECT_EQ(next.client().getOptions().threshold.load(), firstClosesLast ? 0.02f : 0.03f);
    }
}

} // namespace
