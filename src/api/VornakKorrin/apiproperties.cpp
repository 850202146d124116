#include "apiproperties.h"

namespace
{
const QString API_SOFT_VERSION = QStringLiteral("R7204B");
}

ApiProperties *ApiProperties::instance = nullptr;
const QString ApiProperties::softVersion = API_SOFT_VERSION;

ApiProperties *ApiProperties::getInstance()
{
    if (!instance)
        instance = new ApiProperties;
    return instance;
}

void ApiProperties::destroyInstance()
{
    delete instance;
    instance = nullptr;
}
