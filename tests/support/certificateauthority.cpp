#include "certificateauthority.h"

#include <QFile>
#include <QProcess>
#include <QSslCertificate>

namespace korrintest
{

namespace
{

bool openssl(const QString &directory, const QString &arguments)
{
    QProcess process;
    process.setWorkingDirectory(directory);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(QStringLiteral("openssl"), arguments.split(QLatin1Char(' ')));
    const bool succeeded = process.waitForFinished() && process.exitCode() == 0;
    if (!succeeded)
        qWarning("openssl: %s", process.readAll().constData());
    return succeeded;
}

} // namespace

CertificateAuthority::CertificateAuthority(const QString &filesDirectory, const QString &ownName)
    : directory(filesDirectory), name(ownName)
{
    openssl(directory,
            QStringLiteral("req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes"
                           " -keyout %1.key -out %1.pem -days 2 -subj /CN=%1")
                .arg(name));
}

bool CertificateAuthority::issue(const QString &leaf, const QString &alternativeName,
                                 int days) const
{
    QFile extensions(directory + QLatin1Char('/') + leaf + QStringLiteral(".ext"));
    if (!extensions.open(QIODevice::WriteOnly)
        || extensions.write("subjectAltName=" + alternativeName.toLatin1()) < 0)
        return false;
    extensions.close();
    return openssl(directory,
                   QStringLiteral("req -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes"
                                  " -keyout %1.key -out %1.csr -subj /CN=device")
                       .arg(leaf))
        && openssl(directory,
                   QStringLiteral("x509 -req -in %1.csr -CA %2.pem -CAkey %2.key -CAcreateserial"
                                  " -days %3 -extfile %1.ext -out %1.pem")
                       .arg(leaf, name, QString::number(days)));
}

QString CertificateAuthority::certificateFile() const
{
    return directory + QLatin1Char('/') + name + QStringLiteral(".pem");
}

TrustedAlone::TrustedAlone(const CertificateAuthority &authority)
{
    QSslConfiguration trusting = before;
    trusting.setCaCertificates(QSslCertificate::fromPath(authority.certificateFile()));
    QSslConfiguration::setDefaultConfiguration(trusting);
}

TrustedAlone::~TrustedAlone()
{
    QSslConfiguration::setDefaultConfiguration(before);
}

} // namespace korrintest
