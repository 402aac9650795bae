// Random operations on both classes against a plain model, and the fuzz target's corpus replayed.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include "fuzz/driver.h"
#include "support.h"

TEST(Model, FollowsRandomOperations) {
    std::mt19937 random(11);
    for (int round = 0; round < 3000; ++round) {
        std::vector<std::uint8_t> bytes(random() % 600);
        for (auto& byte : bytes)
            byte = static_cast<std::uint8_t>(random());
        fuzz::drive(bytes.data(), bytes.size());
    }
}

TEST(Model, ReplaysTheCorpus) {
    int replayed = 0;
    for (const auto& entry : std::filesystem::directory_iterator(QZSTRING_CORPUS)) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
        fuzz::drive(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
        ++replayed;
    }
    EXPECT_GT(replayed, 0);
}
