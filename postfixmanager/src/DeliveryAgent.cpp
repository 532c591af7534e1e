#include "DeliveryAgent.h"

#include "MapFiles.h"
#include "QVConfFileManager.h"
#include "stage/Stage.h"

namespace
{

bool isSwitchedOn()
{
    QVConfFileManager settings;
    std::string value;
    return settings.isParamExistInQVConfFile(QVCONFFILE, "DovecotLDA") &&
           settings.getParamFromQVConfFile(QVCONFFILE, value, "DovecotLDA") == 1 && value == "yes";
}

} // namespace

bool deliveryAgentEnabled()
{
    Stage* const stage = openStage();
    if (stage == nullptr)
        return isSwitchedOn();
    if (!stage->deliveryAgent)
        stage->deliveryAgent = isSwitchedOn();
    return *stage->deliveryAgent;
}
