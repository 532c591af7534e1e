// Files beyond 2 GiB and days beyond January 2038, which a 32-bit build must be made to take.
#include "system/LargeFilesAndDates.h"

#include "fixture.h"

#include <fstream>

#include <crypt.h>

static constexpr time_t NewYear2040 = 2208988800;
static constexpr long Microseconds = 999983;
static constexpr off_t MiB = off_t{1024} * 1024;
static constexpr off_t Large = 2049 * MiB;

// Lines of zeros, a MiB each, that take hardly any room, and then the text.
static void putLarge(const char* path, const char* text)
{
    std::ofstream file(path);
    for (off_t end = MiB; end <= Large; end += MiB)
        file.seekp(end - 1).put('\n');
    file << text;
}

static std::string afterLargePart(const char* path)
{
    std::ifstream file(path);
    file.seekg(Large);
    return {std::istreambuf_iterator<char>(file), {}};
}

using LargeFilesAndDates = InWorld;

TEST_F(LargeFilesAndDates, AMapIsSearchedExtendedAndRewrittenBeyondTwoGiB)
{
    putLarge(VDOMAINFILE, "far.example\n");
    EXPECT_EQ(run(Files, "VHostFile(far.example;AddDomain)"), "0");
    EXPECT_EQ(run(Files, "VHostFile(new.example;AddDomain)"), "0");
    EXPECT_EQ(afterLargePart(VDOMAINFILE), "far.example\nnew.example\n");

    put({{VDOMAINFILE, "a.example\nb.example\n"}});
    putLarge(VDOMAINFILE "-temp.txt", "left over\n");
    EXPECT_EQ(run(Files, "VHostFile(a.example;RmvDomain)"), "0");
    EXPECT_EQ(afterLargePart(VDOMAINFILE), "left over\nb.example\n");
}

TEST_F(LargeFilesAndDates, AnAccountIsWrittenBeyondTwoGiBWithADayIn2040)
{
    TestManager manager(Files);
    setClock(NewYear2040, Microseconds);
    Account account("u");
    putLarge(VPASSWDFILE, "");
    putLarge(VSHADOWFILE, "");
    EXPECT_EQ(manager.Postfix_PasswdFile(&account), 0);
    EXPECT_EQ(manager.Postfix_ShadowFile(&account), 0);
    const long drawnNext = random();
    EXPECT_EQ(afterLargePart(VPASSWDFILE).substr(0, 10), "u@d.com:x:");
    const std::string hash = crypt("secret", ("$1$" + std::string(account.password)).c_str());
    EXPECT_EQ(afterLargePart(VSHADOWFILE), "u@d.com:" + hash + ":25567::99999::::1\n");
    EXPECT_TRUE(manager.Postfix_IsMailboxExists("u@d.com"));

    srandom(NewYear2040 % Microseconds); // the seed takes the clock whole
    random(), random();
    EXPECT_EQ(drawnNext, random());
}
