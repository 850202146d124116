#ifndef KORRIN_CLOUDMANAGER_H
#define KORRIN_CLOUDMANAGER_H

#include "clouddefs.h"

#include <QByteArray>

/// Coordinates one exported call on one handle: the parameter rules, the client for the handle's
/// mode, and the cloud log. Made on the stack of the call; holds no state but the handle.
class CloudManager
{
public:
    explicit CloudManager(void *callHandle);

    /// Whether a caller may set @p key; an exact, case-sensitive match.
    static bool isSettableParameter(const QString &key);

    /// True when an essential parameter is empty; error 103 is then stored on the handle.
    bool isEssentialParameterEmpty();

    /// True when the handle is ready for a service call; otherwise the error is stored on it.
    bool initialCheck();

    /// Makes the client for the handle's mode and stores it on the handle.
    bool createClient();

    /// Each runs one exchange; false with the reason stored on the handle.
    bool checkEnable();
    bool sendData(const QByteArray &data);
    bool recvData();

    /// Records the finished call; true when its record was posted at once.
    bool sendCloudLog();

private:
    void *const handle; ///< not owned
};

#endif
