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

    /// The version as static text, which needs no instance and no memory.
    static constexpr char API_SOFT_VERSION[] = "R7204B";

    const QString &getSoftVersion() const { return softVersion; }

private:
    static ApiProperties *instance;
    static const QString softVersion;
};

#endif
