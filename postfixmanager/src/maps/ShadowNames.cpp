#include "maps/ShadowNames.h"

#include "MapFiles.h"
#include "maps/MapLines.h"
#include "maps/MapReader.h"

void visitShadowNames(const std::function<bool(std::string_view name)>& take)
{
    MapReader file(VSHADOWFILE);
    bool hasName = false;
    std::string_view line;
    while (file.nextLine(line)) {
        if (line.empty() && hasName)
            continue;
        hasName = true;
        if (!take(accountName(line)))
            return;
    }
}
