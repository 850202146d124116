#include "recorded.h"
#include "requestquery.h"

#include <QtTest>

using namespace korrintest;

namespace
{

/// Bodies that are no valid percent-encoding: only a false match would matter.
bool isValidEncoding(const QByteArray &body)
{
    return QString::fromUtf8(QByteArray::fromPercentEncoding(body)).contains(QChar(0xfffd)) == false
        && !body.contains("%zz");
}

} // namespace

class tst_RequestQuery : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void recordedEncodings_data();
    void recordedEncodings();
    void itemsKeepTheirOrder();
    void nullValueKeepsItsEqualsSign();
    void recordedItemValues_data();
    void recordedItemValues();
    void rawDataAsQuery_data();
    void rawDataAsQuery();
    void everyLegalByteOfAQueryStays();
};

void tst_RequestQuery::recordedEncodings_data()
{
    QTest::addColumn<QString>("value");
    QTest::addColumn<QByteArray>("encoded");
    const QJsonObject recorded = recordedObject(QStringLiteral("query_encoding.json"));
    const QJsonArray singles = recorded.value(QStringLiteral("single")).toArray();
    QCOMPARE(singles.size(), 255);
    for (const QJsonValue &single : singles) {
        const int code = single.toObject().value(QStringLiteral("code")).toInt();
        QTest::newRow(("character " + QByteArray::number(code)).constData())
            << QString(QChar(code))
            << single.toObject().value(QStringLiteral("encoded")).toString().toLatin1();
    }
    for (const QJsonValue &value : recorded.value(QStringLiteral("strings")).toArray()) {
        const QByteArray hex =
            value.toObject().value(QStringLiteral("input_hex")).toString().toLatin1();
        QTest::newRow(("text " + hex).left(200).constData())
            << QString::fromLatin1(QByteArray::fromHex(hex).constData())
            << value.toObject().value(QStringLiteral("encoded")).toString().toLatin1();
    }
}

void tst_RequestQuery::recordedEncodings()
{
    QFETCH(QString, value);
    QFETCH(QByteArray, encoded);
    RequestQuery query;
    query.add(QStringLiteral("v"), value);
    QCOMPARE(query.toEncoded(), "v=" + encoded);
}

void tst_RequestQuery::itemsKeepTheirOrder()
{
    RequestQuery query;
    query.add(QStringLiteral("z"), QStringLiteral("100%25"))
        .add(QStringLiteral("a"), QStringLiteral("x&y=z"))
        .add(QStringLiteral("z"), QStringLiteral("[]"));
    QCOMPARE(query.toEncoded(), QByteArray("z=100%2525&a=x%26y%3Dz&z=%5B%5D"));
}

void tst_RequestQuery::nullValueKeepsItsEqualsSign()
{
    RequestQuery query;
    query.add(QStringLiteral("lang"), QString()).add(QStringLiteral("pn"), QStringLiteral(""));
    QCOMPARE(query.toEncoded(), QByteArray("lang=&pn="));
}

void tst_RequestQuery::recordedItemValues_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QJsonValue>("value");
    for (const QJsonValue &entry : recordedCases(QStringLiteral("query_item_value.json"))) {
        const QByteArray hex =
            entry.toObject().value(QStringLiteral("body_hex")).toString().toLatin1();
        QTest::newRow(("body " + hex).constData())
            << QByteArray::fromHex(hex) << entry.toObject().value(QStringLiteral("value"));
    }
}

void tst_RequestQuery::recordedItemValues()
{
    QFETCH(QByteArray, body);
    QFETCH(QJsonValue, value);
    const QString actual = RequestQuery::itemValue(body, QStringLiteral("is"));
    if (!isValidEncoding(body)) {
        QVERIFY(actual != QStringLiteral("chkud"));
        return;
    }
    QCOMPARE(actual, value.toString());
    QCOMPARE(actual.isNull(), value.isNull());
}

void tst_RequestQuery::rawDataAsQuery_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<QByteArray>("query");
    QTest::newRow("empty") << QByteArray() << QByteArray();
    QTest::newRow("form data") << QByteArray("is=a&x=1%20%e9%3F")
                               << QByteArray("is=a&x=1%20%e9%3F");
    QTest::newRow("header injection") << QByteArray("a HTTP/1.1\r\nX: y\r\n\r\n")
                                      << QByteArray("a%20HTTP/1.1%0D%0AX:%20y%0D%0A%0D%0A");
    QTest::newRow("NUL and high bytes")
        << QByteArray("\0\x7f\x80\xe9\xff", 5) << QByteArray("%00%7F%80%E9%FF");
    QTest::newRow("fragment") << QByteArray("a#b") << QByteArray("a%23b");
    QTest::newRow("illegal marks")
        << QByteArray("\"<>[]\\^`{|}") << QByteArray("%22%3C%3E%5B%5D%5C%5E%60%7B%7C%7D");
    QTest::newRow("stray percent signs")
        << QByteArray("%%4%zz%41%") << QByteArray("%25%254%25zz%41%25");
}

void tst_RequestQuery::rawDataAsQuery()
{
    QFETCH(QByteArray, data);
    QFETCH(QByteArray, query);
    QCOMPARE(RequestQuery::fromRawData(data), query);
}

void tst_RequestQuery::everyLegalByteOfAQueryStays()
{
    // RFC 3986, section 3.4.
    const QByteArray legal = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"
                             "-._~!$&'()*+,;=:@/?";
    QCOMPARE(RequestQuery::fromRawData(legal), legal);
    int kept = 0;
    for (int byte = 0; byte < 256; ++byte) {
        const QByteArray one(1, static_cast<char>(byte));
        kept += RequestQuery::fromRawData(one) == one;
    }
    QCOMPARE(kept, int(legal.size()));
}

QTEST_APPLESS_MAIN(tst_RequestQuery)
#include "tst_requestquery.moc"
