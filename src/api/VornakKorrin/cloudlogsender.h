#ifndef KORRIN_CLOUDLOGSENDER_H
#define KORRIN_CLOUDLOGSENDER_H

#include "clouddefs.h"

#include <QByteArray>
#include <QScopedPointer>

class Uploader;

/// Records one finished call in the cloud log: posts the record, or keeps it in a local file whose
/// records are posted first the next time. Only the mode "update" keeps a log.
///
/// Works on a clone of the caller's handle, so the caller's parameters are never changed.
class CloudLogSender
{
public:
    explicit CloudLogSender(void *callerHandle);
    ~CloudLogSender();
    Q_DISABLE_COPY(CloudLogSender)

    /// Sends or keeps the record; true only when it was posted.
    bool start();

    bool isLogEnabled() const;
    QString getLogParameterData() const;
    QString getDateTime() const;

    /// Posts this call's record.
    bool sendThisData();

    /// Appends this call's record to the log file, unless that would exceed the size limit.
    bool saveToFile() const;

    /// Posts the kept records, oldest first. Those that the server answered are dropped; from the
    /// first network failure on they are kept, in order.
    bool sendFromFile();

private:
    void setUp();
    void makeSendData();
    void makeFileNames();
    QString getParameter(const QString &key) const;
    bool post(const QByteArray &record);
    bool isRefusedByServer() const;

    void *const handle;                ///< the clone, owned; null for an unknown caller's handle
    QScopedPointer<Uploader> uploader; ///< null when logging is off or could not be set up
    QByteArray sendData;               ///< this call's record, without a line break
    QString fileName;
    QString tempFileName;
    QString maxFileSize; ///< as the host set it, read while the clone is certainly known
};

#endif
