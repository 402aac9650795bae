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

// Values of other implementations for the same input: rapidhash 3 up to 16 bytes, XXH3 above 512; for those
// between, arithmetic on whole numbers in Python.
TEST(Hash, HasTheValuesOfOtherImplementations) {
    const struct {
        std::size_t length;
        std::uint64_t value;
    } golden[] = {
        {0, 0x0338DC4BE2CECDAE},     {1, 0x5C2CAF7D68F06D3E},    {2, 0x3EFD241375A7EEF6},
        {3, 0x453968562B8692E9},     {4, 0xCFA4DA2476B6636E},    {7, 0x891CAC4198E0C8CD},
        {8, 0x7B06CCF26409E9BC},     {15, 0x7ED9BFA47676D5A2},   {16, 0x2A7A372C383B6B27},
        {17, 0x978817BDDD795ADE},    {32, 0x3430836EEADE9DFF},   {33, 0x40E3A4BE0E6EAD91},
        {48, 0x499CCDDDA2719533},    {49, 0x0478DEA6DDA1B774},   {64, 0x29D81F392BE6DA44},
        {65, 0x52AA9E5583E62F22},    {80, 0xD87CED0323DCC420},   {81, 0xC6A6EFE5D86E6CA8},
        {96, 0x355662C696ED7580},    {97, 0xD22E7FF18F52E6D6},   {112, 0xF86B26F8A09824C7},
        {113, 0xA9C902D01CE0D73B},   {128, 0x6EEA3B68FFBE02DC},  {129, 0x57A05ED673FA82A2},
        {144, 0x082FC0AEB8B5D04C},   {145, 0x0EFFFD838E5CECE2},  {160, 0xECA5F8E42FED49BF},
        {161, 0xD139459D6E331A0C},   {176, 0xE4F4CDEE1AAE6BE0},  {177, 0xD75107FC7ABC7EC2},
        {192, 0xAB03258AC166E441},   {193, 0xD2AD5522A3B8B395},  {224, 0x9767E7C26BD5760D},
        {256, 0xC225DA6087FDB96D},   {257, 0xE8EDA03081D03E6E},  {320, 0x82A2C9EFFE28F0DB},
        {321, 0x878C482C1344DFF0},   {384, 0x974D8D7521B0ABF6},  {448, 0xC7D20E9777322790},
        {449, 0xB28B421314B2C5B8},   {505, 0xC152308E4EBF03F7},  {512, 0x19C2305933097A2C},
        {513, 0x7D7DB387F492D57B},   {576, 0x498BFC8ECF5184E0},  {577, 0x3D72035EF6DF7A15},
        {897, 0x48842A3E51620222},   {960, 0xE1D3DDEE8766369D},  {961, 0xBCB559CE8E9F1C22},
        {1024, 0xA1E16F2EDF2CBED6},  {1025, 0x0A6D2C17259FE4BB}, {1088, 0x0EF0C0DC0E8682F1},
        {1089, 0xE9459411D2759A81},  {2047, 0x9EC85163F94A6B6D}, {2048, 0x1C81A12455515459},
        {2049, 0xE54B75096179FB9C},  {2112, 0xF4ACC99D69BA2F65}, {5000, 0xAEDBE953D207917D},
        {65536, 0x7402B5216CD59665},
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
