#ifndef QV_QVCONFFILEMANAGER_H
#define QV_QVCONFFILEMANAGER_H

#include "Export.h"

#include <string>

// QVConfFileManager - reader of the product configuration file (/etc/Quorvel.conf)
//
// One setting a line: a name, at least one blank, and the value in double quotes. White space
// before the name is skipped, "name = "value"" with blanks around the equals sign reads the same,
// there are no comments, and a line that names something else is passed over. Nothing is ever
// written, and a file that cannot be read, or is no regular one, is one without settings.
//
// The two readers match names differently, and hosts use both together: a setting counts when
// isParamExistInQVConfFile finds it and getParamFromQVConfFile can read it.
class QV_EXPORT QVConfFileManager
{
public:
    // Neither does anything; each question reads the file afresh.
    QVConfFileManager();
    ~QVConfFileManager();

    // True when the first word of some line is paramName, in any letter case. A word ends at a
    // blank, not at a tab. False for an empty name and for a file that cannot be opened. The search
    // ends at a line of more than 999 characters.
    bool isParamExistInQVConfFile(std::string qvConfFile, std::string paramName);

    // Stores in ParamVal the text between the first two double quotes of the first line that begins
    // with param, in any letter case, and returns 1. Returns 0 and leaves ParamVal alone when no
    // line begins so, when the first one that does has no quoted value, when param is empty or when
    // the file cannot be opened. The search ends at a line of more than 118 characters.
    //
    // The name is a prefix here: "SqlUser" also finds a line "SqlUserName". Name settings so that
    // none begins with another.
    int getParamFromQVConfFile(std::string qvConfFile, std::string& ParamVal, std::string param);
};

#endif
