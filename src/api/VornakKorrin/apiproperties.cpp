#include "apiproperties.h"

ApiProperties *ApiProperties::instance = nullptr;
const QString ApiProperties::softVersion = QLatin1String(API_SOFT_VERSION);

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
