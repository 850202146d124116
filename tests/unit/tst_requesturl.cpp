#include "requesturl.h"

#include <QtTest>

class tst_RequestUrl : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void textToUrl_data();
    void textToUrl();
    void invalidTextsGiveAnEmptyUrl_data();
    void invalidTextsGiveAnEmptyUrl();
    void textOfAUrlIsDecodedAndReadBack();
};

void tst_RequestUrl::textToUrl_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QByteArray>("encoded");
    const auto row = [](const char *name, const char *text, const char *encoded) {
        QTest::newRow(name) << QString::fromLatin1(text) << QByteArray(encoded);
    };
    row("plain", "http://h:80/p?x=1#f", "http://h:80/p?x=1#f");
    row("blank", "http://h/a b", "http://h/a%20b");
    row("encoded blank", "http://h/a%20b", "http://h/a%20b");
    row("other escapes are literal", "http://h/%41%2F%zz%", "http://h/%2541%252F%25zz%25");
    row("Latin-1", "http://h/\xe9", "http://h/%C3%A9");
    row("user and password", "http://u:p@h/", "http://u:p@h/");
    row("line breaks in the user's name", "http://a\r\nb:p@h/", "http://a%20%20b:p@h/");
    row("IPv6", "http://[::1]:8080/x", "http://[::1]:8080/x");
    row("unknown scheme", "foo://h/x", "foo://h/x");
    row("query", "https://h/api?x=1&y=a b", "https://h/api?x=1&y=a%20b");
}

void tst_RequestUrl::textToUrl()
{
    QFETCH(QString, text);
    QFETCH(QByteArray, encoded);
    QCOMPARE(RequestUrl::fromText(text).toEncoded(), encoded);
}

void tst_RequestUrl::invalidTextsGiveAnEmptyUrl_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("empty") << QString();
    QTest::newRow("port too large") << QStringLiteral("http://h:99999/");
    QTest::newRow("port is no number") << QStringLiteral("http://h:80a.zip");
    QTest::newRow("unclosed bracket") << QStringLiteral("http://[::1/");
    QTest::newRow("order to Qt") << QStringLiteral("preconnect-http://h/");
    QTest::newRow("order to Qt, TLS") << QStringLiteral("PRECONNECT-https://h/");
    QTest::newRow("blank in the host") << QStringLiteral("http://a b/");
}

void tst_RequestUrl::invalidTextsGiveAnEmptyUrl()
{
    QFETCH(QString, text);
    QVERIFY(RequestUrl::fromText(text).isEmpty());
}

void tst_RequestUrl::textOfAUrlIsDecodedAndReadBack()
{
    const QString text = QString::fromLatin1("http://h:1/a b%41\xe9?x=\"1\"");
    const QUrl url = RequestUrl::fromText(text);
    QCOMPARE(RequestUrl::toText(url), text);
    QCOMPARE(RequestUrl::fromText(RequestUrl::toText(url)), url);
}

QTEST_APPLESS_MAIN(tst_RequestUrl)
#include "tst_requesturl.moc"
