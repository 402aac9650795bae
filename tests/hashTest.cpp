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

// Values of other implementations for the same input: rapidhash 3 up to 16 bytes and for 225 to 384, XXH3
// above that; for those between, arithmetic on whole numbers in Python.
TEST(Hash, HasTheValuesOfOtherImplementations) {
    const struct {
        std::size_t length;
        std::uint64_t value;
    } golden[] = {
        {0, 0x0338DC4BE2CECDAE},    {1, 0x5C2CAF7D68F06D3E},    {2, 0x3EFD241375A7EEF6},
        {3, 0x453968562B8692E9},    {4, 0xCFA4DA2476B6636E},    {7, 0x891CAC4198E0C8CD},
        {8, 0x7B06CCF26409E9BC},    {15, 0x7ED9BFA47676D5A2},   {16, 0x2A7A372C383B6B27},
        {17, 0xB58BF5DC5022D071},   {32, 0xE3712ED84C04A66E},   {33, 0x27CCDBA9E9B4DEE3},
        {48, 0x08A4D65979BE2474},   {49, 0xAA22F24C59F7C1AE},   {64, 0x1291D2D4042330DD},
        {65, 0xAD439C837B29C853},   {80, 0xB5376D4F14FD166B},   {81, 0x641B21FA78FE86E5},
        {96, 0xC30E942F43021814},   {97, 0x0302861214409FD9},   {112, 0x012C0709A556FA01},
        {113, 0x346D060993B8307A},  {128, 0x57F80AFC7C944F43},  {129, 0x7166D7B3494F603B},
        {144, 0x1D6B2E0136E99703},  {145, 0x00E61E7A85763CF2},  {160, 0xA0F099A0111F7112},
        {176, 0xBD638FD4BEE85008},  {192, 0xB4B0A344FE7FA2AB},  {208, 0x798CAE3CA77FD824},
        {224, 0xDE41D1E97D907F09},  {225, 0xE19212860084855F},  {240, 0x85D9897D08C7099F},
        {241, 0x93734A9AFC0499D1},  {256, 0xC3D1B5C9FC4459C6},  {272, 0x665F9398305CCF4E},
        {288, 0x1514A0418725E9B7},  {304, 0xBB0F8B85426B6D2F},  {320, 0x431A6C7BA0CCF7AB},
        {336, 0xA1DD895AB6D82BED},  {337, 0xD14802C55F15FDBE},  {384, 0x72ABCDC103D8F5BF},
        {385, 0xBE0E3ADE5A0A0D01},  {400, 0x944F8CED562ADF3D},  {448, 0x26986102B5B7369B},
        {449, 0xFAF2AAA11EAC7366},  {512, 0x31CC4C8456761B50},  {897, 0x48842A3E51620222},
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
