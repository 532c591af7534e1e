#include "PasswordHash.h"

#include "Encrypt.h"
#include "stage/Stage.h"

bool hashPassword(char*& password)
{
    const Stage* const stage = openStage();
    if (stage != nullptr && stage->passwordsAreHashed)
        return true;
    password = Encrypt(password);
    return isPasswordHash(password);
}
