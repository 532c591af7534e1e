#include "stage/Effects.h"

#include "stage/Stage.h"
#include "system/RegularFile.h"
#include "system/Shell.h"
#include "system/SpoolTree.h"

#include <unistd.h>

std::optional<Ownership> knownOwner(const char* user, const char* groupAccount)
{
    Stage* const stage = openStage();
    if (stage == nullptr)
        return ownershipOf(user, groupAccount);
    const auto [owner, isNew] = stage->owners.try_emplace({user, groupAccount});
    if (isNew)
        owner->second = ownershipApart(user, groupAccount);
    return owner->second;
}

bool giveTo(const std::string& path, const char* user, const char* groupAccount)
{
    const std::optional<Ownership> owner = knownOwner(user, groupAccount);
    return owner && chown(path.c_str(), owner->user, owner->group) == 0;
}

void rebuildLookupTable(const std::string& map)
{
    if (openStage() == nullptr && !mayNeverEnd(map))
        runInShell("postmap " + map);
}

void reloadPostfix()
{
    if (Stage* const stage = openStage())
        stage->wantReload();
    else
        runInShell("postfix reload");
}

bool makeSpoolDirectory(const std::string& path, mode_t madeWith, mode_t mode)
{
    Stage* const stage = openStage();
    const std::optional<Ownership> owner = knownOwner(MailOwner, MailReaders);
    if (!owner) {
        if (stage != nullptr)
            stage->fail("the system account \"qvadmin\" or \"mail\" is missing");
        return false;
    }
    if (stage != nullptr)
        return stage->makeDirectory({path, mode});
    return makePlainlyInSpool({path, mode, *owner}, madeWith);
}

void removeSpoolPath(const std::string& command, const std::string& path)
{
    if (Stage* const stage = openStage()) {
        stage->remove(path);
        return;
    }
    // Hosts watch the commands, so the command stays as it is, with a path in it. Whoever may write
    // below the spool could lead that path elsewhere: HeldWay prevents it while the command runs.
    const HeldWay way(path);
    if (way.isSafe())
        runInShell(command);
}
