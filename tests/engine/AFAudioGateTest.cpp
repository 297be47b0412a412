#include "engine/AFAudioGate.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

// Two writers hold the gate at once, as a host loading a state and an editor swapping an effect do: the audio
// stays out until the second of them lets go, and a hold waits for the block that is running.
TEST(AFAudioGate, HoldsFromTwoThreadsKeepTheAudioOutUntilBothRelease) {
    AFAudioGate gate;
    ASSERT_TRUE(gate.enter()); // a block is running
    std::atomic<int> held{0};
    std::atomic<bool> releaseFirst{false};
    std::atomic<bool> releaseSecond{false};
    const auto writer = [&](std::atomic<bool>& releaseNow) {
        gate.hold();
        held.fetch_add(1);
        while (!releaseNow.load())
            std::this_thread::yield();
        gate.release();
        held.fetch_sub(1);
    };
    std::thread first(writer, std::ref(releaseFirst));
    std::thread second(writer, std::ref(releaseSecond));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(held.load(), 0); // both still wait for the block
    gate.leave();
    while (held.load() != 2)
        std::this_thread::yield();

    EXPECT_FALSE(gate.enter());
    releaseFirst.store(true);
    first.join();
    EXPECT_TRUE(gate.isHeld());
    EXPECT_FALSE(gate.enter());
    releaseSecond.store(true);
    second.join();
    EXPECT_FALSE(gate.isHeld());
    EXPECT_TRUE(gate.enter());
    gate.leave();

    // An extra release does not leave the count below zero.
    gate.release();
    gate.hold();
    EXPECT_FALSE(gate.enter());
    gate.release();
}
