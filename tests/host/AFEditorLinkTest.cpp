#include "TestHost.h"

#include "effects/framework/AFEffect.h"
#include "host/AFEditorLink.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <thread>
#include <vector>

namespace {

std::array<uint32_t, AFUniClient::kSlots> effectTypes(AFUniClient& client) {
    std::array<uint32_t, AFUniClient::kSlots> types{};
    for (int slot = 0; slot < AFUniClient::kSlots; ++slot)
        types[static_cast<std::size_t>(slot)] = client.slotEffect(slot)->getEffectType();
    return types;
}

} // namespace

// The host's thread loads states while the link serves Randomize with no editor open: every time the loader
// gets its turn after a randomize began, that randomize is already whole.
TEST(AFEditorLink, StateLoadsNeverSeeAHalfDoneRandomize) {
    TestHost host;
    AFUniClient& client = host.client();
    AFEditorLink link(client);
    for (int round = 0; round < 6; ++round) {
        const int before = client.getHistory().size();
        client.setParameter(AFUniClient::kRandomize, 0.0f);
        client.setParameter(AFUniClient::kRandomize, 1.0f);
        std::vector<std::array<uint32_t, AFUniClient::kSlots>> seen;
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(3);
        while (std::chrono::steady_clock::now() < end) {
            {
                const AFAudioGate::Reader load(client.getAudioGate());
                if (client.getHistory().size() > before) seen.push_back(effectTypes(client));
            }
            if (seen.size() > 200) break;
            std::this_thread::yield();
        }
        ASSERT_FALSE(seen.empty()) << "the randomize never ran";
        for (const auto& types : seen)
            ASSERT_EQ(types, seen.back()) << "round " << round;
    }
    // With an editor open, its own timer serves the request.
    const int before = client.getHistory().size();
    link.setEditorOpen(true);
    client.setParameter(AFUniClient::kRandomize, 0.0f);
    client.setParameter(AFUniClient::kRandomize, 1.0f);
    std::this_thread::sleep_for(std::chrono::milliseconds(4 * AFEditorLink::kPeriodMs));
    EXPECT_EQ(client.getHistory().size(), before);
    EXPECT_TRUE(client.takeRandomizeRequest());
}
