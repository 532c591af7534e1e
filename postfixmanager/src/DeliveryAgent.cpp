#include "DeliveryAgent.h"

#include "MapFiles.h"
#include "QVConfFileManager.h"

bool deliveryAgentEnabled()
{
    QVConfFileManager settings;
    std::string value;
    return settings.isParamExistInQVConfFile(QVCONFFILE, "DovecotLDA") &&
           settings.getParamFromQVConfFile(QVCONFFILE, value, "DovecotLDA") == 1 && value == "yes";
}
