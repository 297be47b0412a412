#include "engine/AFRandomizer.h"

#include "effects/framework/EffectFactory.h"
#include "engine/AFRandom.h"
#include "engine/AFUniClient.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <system_error>

std::vector<std::string> AFRandomizer::presetFiles(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code error;
    std::filesystem::directory_iterator it(folder, error);
    for (; !error && it != std::filesystem::directory_iterator(); it.increment(error)) {
        std::string name = it->path().filename().string();
        if (name.size() >= 3 && name.compare(name.size() - 3, 3, "afo") == 0)
            names.push_back(std::move(name));
    }
    // Directory order differs between file systems; sorted, the same seed gives the same presets everywhere.
    std::sort(names.begin(), names.end());
    return names;
}

void AFRandomizer::randomize(AFUniClient& client, const std::string& contentPath) {
    constexpr int kListEnd = EffectFactory::kMenuCount;
    for (int slot = 0; slot < AFUniClient::kSlots; ++slot) {
        const auto index = static_cast<int>(std::lround(AFRandom::next() * 23.5f));
        const int type = kDrawTypes[std::clamp(index, 0, kListEnd)];
        // The word after the list names no effect the catalogue can build: the slot stays as it is.
        if (!EffectFactory::hasClass(type)) continue;
        client.setSlotEffect(slot, type);

        const std::string folder = contentPath + "/Effect Presets/" + EffectFactory::effectName(type) + "/";
        const std::vector<std::string> files = presetFiles(folder);
        if (files.empty()) continue;
        const auto start = std::min(
            static_cast<std::size_t>(AFRandom::next() * static_cast<float>(files.size())), files.size() - 1);
        // The FX Gain belongs to the mix the user made, not to the drawn sound.
        const float gain = client.getParameter(AFParameterMap::fxGain(slot));
        for (std::size_t i = start; i < files.size(); ++i)
            if (client.loadPreset(folder + files[i], slot, true)) break;
        client.setParameter(AFParameterMap::fxGain(slot), gain);
    }
}
