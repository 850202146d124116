#ifndef KORRIN_APIPROPERTIES_H
#define KORRIN_APIPROPERTIES_H

#include "clouddefs.h"

/// Holds the library's software version.
class ApiProperties
{
public:
    /// The single instance, created on first use.
    static ApiProperties *getInstance();
    static void destroyInstance();

    const QString &getSoftVersion() const { return softVersion; }

private:
    static ApiProperties *instance;
    static const QString softVersion;
};

#endif
