#include "TestHost.h"

#include "engine/AFDictator.h"
#include "engine/AFRandom.h"

#include <gtest/gtest.h>

TEST(Dictator, EmptyRowHoldsEveryControlAtZero) {
    AFDictator d;
    for (float v = 0.0f; v <= 1.0f; v += 0.01f)
        EXPECT_EQ(d.controlValue(0, v, 0.01f), 0.0f);
}

TEST(Dictator, SinglePointGetsAPartnerAtNodeZero) {
    AFDictator d;
    d.node(2, 5).value = 0.8f;
    d.node(2, 5).set = true;
    d.rebuild(2);
    EXPECT_TRUE(d.node(2, 0).set);
    EXPECT_EQ(d.node(2, 0).value, 0.0f);
    for (int i = 1; i < 5; ++i)
        EXPECT_NEAR(d.node(2, i).value, 0.16f * i, 1e-6f);
    EXPECT_TRUE(d.node(2, 5).last);
    // At node 5 the point is the last: the Control falls to 0 there.
    EXPECT_EQ(d.controlValue(2, 5.0f / 15.999f + 1e-4f, 0.01f), 0.0f);
    // Halfway between nodes 2 and 3 the line is interpolated.
    const float v = 2.5f / 15.999f;
    EXPECT_NEAR(d.controlValue(2, v, 0.01f), 0.4f, 1e-4f);
}

TEST(Dictator, SinglePointAtNodeZeroGetsHalfAtNodeOne) {
    AFDictator d;
    d.node(0, 0).value = 0.9f;
    d.node(0, 0).set = true;
    d.rebuild(0);
    EXPECT_TRUE(d.node(0, 1).set);
    EXPECT_EQ(d.node(0, 1).value, 0.5f);
    EXPECT_TRUE(d.node(0, 1).last);
    EXPECT_EQ(d.controlValue(0, 1.0f / 15.999f + 1e-4f, 0.01f), 0.0f);
}

TEST(Dictator, TopOfTravelInterpolatesTowardsNodeSixteen) {
    AFDictator d;
    d.node(1, 0).set = true, d.node(1, 0).value = 0.2f;
    d.node(1, 16).set = true, d.node(1, 16).value = 1.0f;
    d.rebuild(1);
    EXPECT_EQ(AFDictator::positionFor(1.0f), 15);
    const float frac = 15.999f - 15.0f;
    const float at15 = d.node(1, 15).value;
    EXPECT_NEAR(d.controlValue(1, 1.0f, 0.01f), (1.0f - at15) * frac + at15, 1e-6f);
    EXPECT_EQ(d.controlValue(1, 0.005f, 0.01f), 0.0f); // at or below the threshold everything is off
}

TEST(Dictator, RandomiseSetsRoughlyFifteenPercent) {
    AFRandom::seed(4242);
    AFDictator d;
    int set = 0;
    for (int trial = 0; trial < 200; ++trial) {
        d.randomise(3);
        for (int i = 0; i < AFDictator::kNodes; ++i)
            set += d.node(3, i).set ? 1 : 0;
    }
    EXPECT_NEAR(set / (200.0 * AFDictator::kNodes), 0.15, 0.03);
}

TEST(Dictator, MovingTheDictatorDrivesControlsAndGates) {
    TestHost host;
    auto& client = host.client();
    auto& d = client.getDictator();
    d.node(4, 0).set = true, d.node(4, 0).value = 0.0f;
    d.node(4, 16).set = true, d.node(4, 16).value = 1.0f;
    d.rebuild(4);
    client.setParameter(8, 0.5f);
    EXPECT_NEAR(client.getParameter(4), d.controlValue(4, 0.5f, 0.01f), 1e-7f);
    EXPECT_GT(client.getParameter(4), 0.4f);
    EXPECT_EQ(client.getSlot(4).getPending(), 1);
    EXPECT_EQ(client.getDictatorPosition(), 7);
    EXPECT_EQ(client.getParameter(0), 0.0f);
    // The same value again changes nothing.
    client.setParameter(4, 0.1f);
    client.setParameter(8, 0.5f);
    EXPECT_EQ(client.getParameter(4), 0.1f);
}

TEST(Dictator, RecordingPlacesControlsUnderTheDictator) {
    TestHost host;
    auto& client = host.client();
    client.setDictatorRecord(true);
    client.setParameter(2, 0.7f); // Dictator at 0: nothing recorded
    EXPECT_FALSE(client.getDictator().isChanged(2));
    client.setParameter(8, 0.5f);
    client.setParameter(2, 0.6f);
    const int node = static_cast<int>(0.5f * 16.999f);
    EXPECT_TRUE(client.getDictator().node(2, node).set);
    EXPECT_EQ(client.getDictator().node(2, node).value, 0.6f);
    EXPECT_TRUE(client.getDictator().isChanged(2));
    client.setBatch(true);
    client.setParameter(3, 0.6f);
    EXPECT_FALSE(client.getDictator().isChanged(3));
}

TEST(Dictator, TriggersRandomiseOnRisingEdgesOnly) {
    TestHost host;
    auto& client = host.client();
    AFRandom::seed(99);
    client.setParameter(2000003, 0.7f); // row 2
    AFDictator snapshot = client.getDictator();
    client.setParameter(2000003, 0.9f); // no new edge
    for (int i = 0; i < AFDictator::kNodes; ++i)
        EXPECT_EQ(client.getDictator().node(2, i).value, snapshot.node(2, i).value);
    for (int i = 0; i < AFDictator::kNodes; ++i)
        EXPECT_FALSE(client.getDictator().node(7, i).set);
}
