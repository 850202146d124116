#ifndef KORRIN_TESTS_CERTIFICATEAUTHORITY_H
#define KORRIN_TESTS_CERTIFICATEAUTHORITY_H

#include <QSslConfiguration>
#include <QString>

namespace korrintest
{

/// A throw-away certificate authority, made with openssl(1); its files stay in @p directory.
class CertificateAuthority
{
public:
    /// Makes NAME.key and NAME.pem; where that fails, nothing can be issued.
    CertificateAuthority(const QString &directory, const QString &name);

    /// Makes @p leaf.key and @p leaf.pem, signed by the authority, for instance for "IP:127.0.0.1".
    /// @param days  how long it is valid; negative: it has expired
    bool issue(const QString &leaf, const QString &alternativeName, int days = 2) const;

    QString certificateFile() const;

private:
    const QString directory;
    const QString name;
};

/// For the length of a scope the process trusts one authority and no other.
class TrustedAlone
{
public:
    explicit TrustedAlone(const CertificateAuthority &authority);
    ~TrustedAlone();
    Q_DISABLE_COPY(TrustedAlone)

private:
    const QSslConfiguration before = QSslConfiguration::defaultConfiguration();
};

} // namespace korrintest

#endif
