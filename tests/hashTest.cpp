// The hash: golden values at the edges of its branches, equal in every kernel.
#include "primitives/hash.h"

#include "everyKernel.h"
#include "support.h"

namespace {

std::string pattern(std::size_t length) {
    std::string text;
    for (std::size_t i = 0; i < length; ++i)
        text += static_cast<char>(i * 131 + (i >> 8) * 17 + 7);
    return text;
}

std::uint64_t hashOf(const std::string& text) {
    const support::Exact<unsigned char> bytes{std::basic_string_view<unsigned char>(
        reinterpret_cast<const unsigned char*>(text.data()), text.size())};
    return qz::hashfunction(bytes.data(), static_cast<int>(text.size()));
}

}  // namespace

// Values of the published functions for the same input: rapidhash 3 up to 16 bytes and for 129 to 896, XXH3
// for 17 to 128 and above.
TEST(Hash, HasTheValuesOfThePublishedFunctions) {
    const struct {
        std::size_t length;
        std::uint64_t value;
    } golden[] = {
        {0, 0x0338DC4BE2CECDAE},    {1, 0x5C2CAF7D68F06D3E},    {2, 0x3EFD241375A7EEF6},
        {3, 0x453968562B8692E9},    {4, 0xCFA4DA2476B6636E},    {7, 0x891CAC4198E0C8CD},
        {8, 0x7B06CCF26409E9BC},    {15, 0x7ED9BFA47676D5A2},   {16, 0x2A7A372C383B6B27},
        {17, 0xB58BF5DC5022D071},   {32, 0xE3712ED84C04A66E},   {33, 0xA4DEE99B093E1F73},
        {48, 0xD8D1CAAA06AE1E99},   {49, 0x39A72D7709B32CF1},   {64, 0x1291D2D4042330DD},
        {65, 0x97C6BF83217E5EC9},   {80, 0xC50C581CF16B1ED6},   {81, 0xF5B1658EC88094F4},
        {96, 0x81296929FC063365},   {97, 0xF145A45B658AB9DD},   {112, 0xC787B705CF40BB90},
        {113, 0x2EC87840A00FE887},  {128, 0x10D17F72C0CCBA41},  {129, 0xF926C3A8930D2108},
        {224, 0xB8E4F7C6687702A5},  {225, 0xE19212860084855F},  {400, 0x8E978BDDBB88386A},
        {512, 0x93A0E50D8A775294},  {513, 0xD338F0559D9270DF},  {575, 0xA54DD7DDA6054324},
        {576, 0xD1C4428E4824D348},  {577, 0x965782718B629A64},  {672, 0xC0AA3AA892DA0EC0},
        {673, 0x516FADAD05D60B95},  {896, 0xF424188E84F2D6D7},  {897, 0x48842A3E51620222},
        {960, 0xE1D3DDEE8766369D},  {961, 0xBCB559CE8E9F1C22},  {1024, 0xA1E16F2EDF2CBED6},
        {1025, 0x0A6D2C17259FE4BB}, {1088, 0x0EF0C0DC0E8682F1}, {1089, 0xE9459411D2759A81},
        {2047, 0x9EC85163F94A6B6D}, {2048, 0x1C81A12455515459}, {2049, 0xE54B75096179FB9C},
        {2112, 0xF4ACC99D69BA2F65}, {5000, 0xAEDBE953D207917D}, {65536, 0x7402B5216CD59665},
    };
    support::forEveryKernel([&](const support::Kernels&) {
        for (const auto& g : golden)
            EXPECT_EQ(hashOf(pattern(g.length)), g.value) << g.length;
    });
}

TEST(Hash, HashesWideTextAsItsBytes) {
    const std::wstring text = L"wide text \x416\x1F600";
    EXPECT_EQ(qz::hashfunction(text.data(), static_cast<int>(text.size())),
              hashOf(std::string(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t))));
    EXPECT_EQ(qz::hashfunction(L"", 0), qz::hashfunction(reinterpret_cast<const unsigned char*>(""), 0));
}
