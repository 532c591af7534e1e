#include "system/LargeFilesAndDates.h"

#include "QVConfFileManager.h"

#include "stage/Stage.h"
#include "system/RegularFile.h"

#include <cctype>
#include <cstring>
#include <fstream>

#include <strings.h>
#include <unistd.h>

namespace
{

// The two readers differ in how long a line may be. A longer one fails the stream: its first part
// still counts, and then the scan ends.
constexpr int ExistenceLineSize = 1000;
constexpr int ValueLineSize = 119;

char* skipWhiteSpace(char* text)
{
    while (isspace(static_cast<unsigned char>(*text)))
        ++text;
    return text;
}

// A fifo or a device may never end: it is not opened.
std::ifstream opened(const std::string& path)
{
    return mayNeverEnd(path) ? std::ifstream() : std::ifstream(path);
}

// For a plain call, a file that cannot be read is one without settings. A transaction must not
// decide by what it could not read.
void noteFailure(const std::ifstream& file, const std::string& path)
{
    Stage* const stage = openStage();
    const bool isFailed = file.bad() || (!file.is_open() && access(path.c_str(), F_OK) == 0);
    if (isFailed && stage != nullptr)
        stage->fail(path + " cannot be read");
}

} // namespace

QVConfFileManager::QVConfFileManager() = default;

QVConfFileManager::~QVConfFileManager() = default;

bool QVConfFileManager::isParamExistInQVConfFile(std::string qvConfFile, std::string paramName)
{
    if (paramName.empty())
        return false;

    std::ifstream file = opened(qvConfFile);
    char line[ExistenceLineSize];
    while (file.good()) {
        memset(line, 0, sizeof line);
        file.getline(line, sizeof line);
        char* const name = skipWhiteSpace(line);
        char* const nameEnd = strchr(name, ' ');
        if (nameEnd == nullptr)
            continue;
        *nameEnd = '\0';
        if (strcasecmp(name, paramName.c_str()) == 0)
            return true;
    }
    noteFailure(file, qvConfFile);
    return false;
}

int QVConfFileManager::getParamFromQVConfFile(std::string qvConfFile, std::string& ParamVal,
                                              std::string param)
{
    if (param.empty())
        return 0;

    std::ifstream file = opened(qvConfFile);
    char line[ValueLineSize];
    while (file.good()) {
        memset(line, 0, sizeof line);
        file.getline(line, sizeof line);
        const char* const name = skipWhiteSpace(line);
        // A prefix test, unlike the other reader's.
        if (strncasecmp(name, param.c_str(), param.size()) != 0)
            continue;

        // The first line that matches decides, even when it has no value.
        const char* const opening = strchr(name, '"');
        if (opening == nullptr)
            return 0;
        const char* const closing = strchr(opening + 1, '"');
        if (closing == nullptr)
            return 0;
        ParamVal.assign(opening + 1, closing);
        return 1;
    }
    noteFailure(file, qvConfFile);
    return 0;
}
