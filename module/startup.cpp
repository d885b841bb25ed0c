// The module's entry.
#include <array>

#include "module/catalogue.h"

namespace {

constexpr int kTokenLength = 29;

/// The registration token, kept scrambled so that it doesn't show up as text in the module.
constexpr std::array<unsigned char, kTokenLength> Scrambled() {
  constexpr char plain[kTokenLength + 1] = "ombrivex-standard-components1";
  std::array<unsigned char, kTokenLength> bytes{};
  for (int i = 0; i < kTokenLength; ++i)
    bytes[i] = static_cast<unsigned char>(static_cast<unsigned char>(plain[i]) ^ (0x5a + 7 * i));
  return bytes;
}
constexpr auto kScrambledToken = Scrambled();

/// Unscrambles in place.
void Unscramble(trString& buffer) {
  for (int i = 0; i < kTokenLength; ++i)
    buffer[i] = static_cast<char>(static_cast<unsigned char>(buffer[i]) ^ (0x5a + 7 * i));
}

}  // namespace

extern "C" OV_API long trPluginStartup(trPluginStartupInfo* info) {
  trString tokenText;
  tokenText.reserve(kTokenLength);
  tokenText.assign(kScrambledToken.begin(), kScrambledToken.end());
  Unscramble(tokenText);

  auto version = std::make_unique<trPluginSdkVersion>();
  version->PrivateInit();
  version->SetVersion(kOvSdkVersion);
  trPluginToken token(info, *version, tokenText.c_str());
  version.reset();

  RegisterCatalogue(token);
  return 1;
}
