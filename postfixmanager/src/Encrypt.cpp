#include "system/LargeFilesAndDates.h"

#include "Encrypt.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <crypt.h>
#include <sys/time.h>

namespace
{

constexpr char SaltTemplate[] = "$1$........";
constexpr int SaltStart = 3;
constexpr int SaltLength = 8;

// The product's own order of the letters that crypt takes in a salt.
constexpr char SaltAlphabet[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz./";

void seedFromClock()
{
    timeval now{};
    gettimeofday(&now, nullptr);
    // On a full second tv_usec is 0, and nothing can be divided by it.
    const auto seed = now.tv_usec == 0 ? now.tv_sec : now.tv_sec % now.tv_usec;
    srandom(static_cast<unsigned int>(seed));
}

} // namespace

char* Encrypt(char* Passwd)
{
    char salt[sizeof SaltTemplate];
    memcpy(salt, SaltTemplate, sizeof salt);

    seedFromClock();
    // Two 32-bit numbers side by side, the lowest byte first, whatever the machine's byte order.
    const auto low = static_cast<std::uint32_t>(random());
    const auto high = static_cast<std::uint32_t>(random());
    const std::uint64_t bytes = static_cast<std::uint64_t>(high) << 32 | low;
    for (int i = 0; i < SaltLength; ++i)
        salt[SaltStart + i] = SaltAlphabet[bytes >> (8 * i) & 0x3F];

    char* const hash = crypt(Passwd, salt);
    memcpy(Passwd, salt + SaltStart, SaltLength + 1);
    return hash;
}
