#include "answer.h"
#include "base64.h"
#include "body.h"
#include "configuration.h"
#include "faultbook.h"
#include "linedjson.h"
#include "queryitems.h"
#include "settings.h"
#include "version.h"

#include <QtTest>

#include <string>
#include <vector>

namespace
{

FaultRule rule(const char *text)
{
    return FaultRule::fromText(text);
}

std::string met(FaultRule tested, int count, const FaultTarget &target = {})
{
    std::string result;
    for (int i = 0; i < count; ++i)
        result += tested.meets(target) ? 'x' : '.';
    return result;
}

std::string part(const Body &body, uint64_t offset, size_t size)
{
    std::string result(size, '\0');
    body.read(offset, result.data(), size);
    return result;
}

} // namespace

/// The simulator's classes, each by itself.
class tst_Parts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void jsonKnowsItsLines();
    void jsonComplainsWithTheLine_data();
    void jsonComplainsWithTheLine();
    void ruleHasTheSameMeaningInBothForms_data();
    void ruleHasTheSameMeaningInBothForms();
    void wrongRuleTexts_data();
    void wrongRuleTexts();
    void ruleMatching();
    void ruleCounting();
    void probabilityIsRepeatable();
    void rulesAddUp();
    void queryItems_data();
    void queryItems();
    void settingsAreTakenApart();
    void versions_data();
    void versions();
    void madeUpBytes();
    void paddedBody();
    void base64();
    void xmlEscaping();
    void hugeAnswerStaysXml();
};

void tst_Parts::jsonKnowsItsLines()
{
    const LinedJson json = LinedJson::parse("{\n \"a\": [1,\n 2],\n\n \"b/c~\": {\"d\":\nnull}}");
    QCOMPARE(json.lines.at(""), 1);
    QCOMPARE(json.lines.at("/a"), 2);
    QCOMPARE(json.lines.at("/a/1"), 3);
    QCOMPARE(json.lines.at("/b~1c~0"), 5);
    QCOMPARE(json.lines.at("/b~1c~0/d"), 6);
    QCOMPARE(json.document.at("a").at(1).get<int>(), 2);
}

void tst_Parts::jsonComplainsWithTheLine_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("line");
    QTest::newRow("missing comma") << QByteArray("[1\n2]") << 2;
    QTest::newRow("cut off") << QByteArray("{\n\n\"a\": 1") << 3;
    QTest::newRow("the same key twice") << QByteArray("{\"a\": 1,\n\"a\": 2}") << 2;
    QTest::newRow("more behind it") << QByteArray("{}\n\n{}") << 3;
}

void tst_Parts::jsonComplainsWithTheLine()
{
    QFETCH(QByteArray, text);
    QFETCH(int, line);
    int seen = 0;
    try {
        LinedJson::parse(text.toStdString());
    } catch (const ConfigError &error) {
        seen = error.line;
    }
    QCOMPARE(seen, line);
}

void tst_Parts::ruleHasTheSameMeaningInBothForms_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("json");
    const auto add = [](const char *text, const char *json) {
        QTest::newRow(text) << QByteArray(text) << QByteArray(json);
    };
    add("delay:500", R"({"fault":"delay","ms":500})");
    add("stall", R"({"fault":"stall"})");
    add("stall:body", R"({"fault":"stall","at":"body"})");
    add("drip:10", R"({"fault":"drip","bytes_per_second":10})");
    add("cut", R"({"fault":"cut"})");
    add("cut:0", R"({"fault":"cut","bytes":0})");
    add("close", R"({"fault":"close"})");
    add("reset", R"({"fault":"reset"})");
    add("status:503", R"({"fault":"status","code":503})");
    add("echo", R"({"fault":"echo","text":"other"})");
    add("echo:5", R"({"fault":"echo","text":"5"})");
    add("refuse:7:No: never", R"({"fault":"refuse","code":"7","message":"No: never"})");
    add("space", R"({"fault":"space"})");
    add("malformed", R"({"fault":"malformed"})");
    add("huge", R"({"fault":"huge","bytes":67108864})");
    add("close,path=/su/*,is=chkud,product=12,every=3",
        R"({"fault":"close","match":{"path":"/su/*","is":"chkud","product":"12","every":3}})");
    add("close,next=2", R"({"fault":"close","match":{"next":2}})");
    add("close,probability=0.5,seed=9",
        R"({"fault":"close","match":{"probability":0.5,"seed":9}})");
}

void tst_Parts::ruleHasTheSameMeaningInBothForms()
{
    QFETCH(QByteArray, text);
    QFETCH(QByteArray, json);
    const nlohmann::json fromText = rule(text.constData()).toJson();
    const FaultRule fromJson = FaultRule::fromJson(nlohmann::json::parse(json.toStdString()));
    QCOMPARE(fromText.dump(), fromJson.toJson().dump());
    QCOMPARE(FaultRule::fromJson(fromText).toJson().dump(), fromText.dump());
}

void tst_Parts::wrongRuleTexts_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("complaint");
    const auto add = [](const char *text, const char *complaint) {
        QTest::newRow(text) << QByteArray(text) << QByteArray(complaint);
    };
    add("", "unknown fault \"\"");
    add("slow", "unknown fault \"slow\"");
    add("close:1", "\"close\" takes no value");
    add("delay", "\"ms\" is missing");
    add("delay:-1", "\"ms\"");
    add("delay:1.5", "\"ms\"");
    add("stall:end", "\"at\"");
    add("drip:0", "\"bytes_per_second\"");
    add("status:1000", "\"code\"");
    add("close,is", "\"is\" is not KEY=VALUE");
    add("close,host=x", "\"host\"");
    add("close,every=0", "\"every\"");
    add("close,next=1,every=1", "one of");
    add("close,seed=1", "seed");
}

void tst_Parts::wrongRuleTexts()
{
    QFETCH(QByteArray, text);
    QFETCH(QByteArray, complaint);
    std::string seen = "nothing was thrown";
    try {
        rule(text.constData());
    } catch (const std::invalid_argument &error) {
        seen = error.what();
    }
    QVERIFY2(seen.find(complaint.toStdString()) != std::string::npos, seen.c_str());
}

void tst_Parts::ruleMatching()
{
    const FaultTarget target = {"/su/search", "chkud", "KX-100"};
    for (const char *text : {"close", "close,path=/su/search", "close,path=/su/*", "close,path=*",
                             "close,is=chkud", "close,product=KX-100,is=chkud"})
        QVERIFY2(rule(text).meets(target), text);
    for (const char *text : {"close,path=/su", "close,path=/ra/*", "close,is=chk",
                             "close,product=KX-1", "close,is=chkud,product=other"})
        QVERIFY2(!rule(text).meets(target), text);
}

void tst_Parts::ruleCounting()
{
    QCOMPARE(met(rule("close"), 3), std::string("xxx"));
    QCOMPARE(met(rule("close,every=3"), 7), std::string("..x..x."));
    QCOMPARE(met(rule("close,next=2"), 4), std::string("xx.."));
    FaultRule counted = rule("close,next=1");
    QVERIFY(counted.meets({}));
    QVERIFY(!counted.meets({}));
    counted.setEnabled(false);
    counted.setEnabled(true);
    QVERIFY(counted.meets({}));
    QCOMPARE(counted.hits, uint64_t(2));
    counted.setEnabled(false);
    QVERIFY(!counted.meets({}));
}

void tst_Parts::probabilityIsRepeatable()
{
    const std::string first = met(rule("close,probability=0.3,seed=7"), 1000);
    QCOMPARE(met(rule("close,probability=0.3,seed=7"), 1000), first);
    QVERIFY(met(rule("close,probability=0.3,seed=8"), 1000) != first);
    const auto hits = std::count(first.begin(), first.end(), 'x');
    QVERIFY(hits > 230 && hits < 370);
    QCOMPARE(met(rule("close,probability=0"), 3), std::string("..."));
    QCOMPARE(met(rule("close,probability=1"), 3), std::string("xxx"));
}

void tst_Parts::rulesAddUp()
{
    FaultBook book;
    book.add(rule("delay:5"));
    const uint64_t id = book.add(rule("status:503")).id;
    book.add(rule("close,is=other"));
    Fault fault = book.faultFor({"/su/search", "chkud", ""});
    QCOMPARE(fault.kinds, std::string("delay+status"));
    QCOMPARE(fault.delayMs, uint64_t(5));
    QCOMPARE(fault.status, 503);
    QVERIFY(!fault.closes);
    QVERIFY(book.remove(id));
    QVERIFY(!book.remove(id));
    QCOMPARE(book.faultFor({}).kinds, std::string("delay"));
    book.clear();
    QVERIFY(book.faultFor({}).kinds.empty());
}

void tst_Parts::queryItems_data()
{
    QTest::addColumn<QByteArray>("query");
    QTest::addColumn<QByteArray>("items");
    const auto add = [](const char *query, const char *items) {
        QTest::newRow(query) << QByteArray(query) << QByteArray(items);
    };
    add("", "");
    add("a=1&b=2", "a:1 b:2");
    add("a=1=2&b", "a:1=2 b:");
    add("a=+%2B", "a:++");
    add("a=%41%zz%4", "a:A%zz%4");
    add("&&a=1&", "a:1");
    add("a=1\n", "a:1");
    add("%61=x&a=y", "a:x a:y");
}

void tst_Parts::queryItems()
{
    QFETCH(QByteArray, query);
    QFETCH(QByteArray, items);
    const QueryItems parsed(query.toStdString());
    std::string seen;
    for (const auto &[key, value] : parsed.all())
        seen += (seen.empty() ? "" : " ") + key + ":" + value;
    QCOMPARE(seen, items.toStdString());
}

void tst_Parts::settingsAreTakenApart()
{
    const std::string summary =
        "http_proxy:http://u:p@h:1,x,https_proxy:,server_url:http://a/"
        ",recv_timeout:5,language_code:,"
        "product_name:a,result:b,result:1,soft_ver:2.0,send_data_type:,download_file_path:,"
        "cloud_log_file_save_dir:/x,cloud_log_file_max_size:100";
    const nlohmann::json settings = settingsFromSummary(summary);
    QCOMPARE(settings.size(), size_t(12));
    QCOMPARE(settings.at("http_proxy").get<std::string>(), std::string("http://u:p@h:1,x"));
    QCOMPARE(settings.at("soft_ver").get<std::string>(), std::string("2.0"));
    QCOMPARE(settings.at("cloud_log_file_max_size").get<std::string>(), std::string("100"));
    const nlohmann::json other = settingsFromSummary("something else");
    QCOMPARE(other.at("").get<std::string>(), std::string("something else"));
}

void tst_Parts::versions_data()
{
    QTest::addColumn<QByteArray>("version");
    QTest::addColumn<QByteArray>("other");
    QTest::addColumn<bool>("newer");
    const auto add = [](const char *version, const char *other, bool newer) {
        QTest::newRow((QByteArray(version) + " and " + other).constData())
            << QByteArray(version) << QByteArray(other) << newer;
    };
    add("2.0", "1.0", true);
    add("1.0", "2.0", false);
    add("2.0", "2.0", false);
    add("1.10", "1.9", true);
    add("1.9", "1.10", false);
    add("1.01", "1.1", false);
    add("1.0.1", "1.0", true);
    add("1.0", "1.0.1", false);
    add("R7204B", "R7204A", true);
    add("R7204A", "R800A", true);
    add("1.0b", "1.0a", true);
    add("99999999999999999999", "99999999999999999998", true);
    add("1", "", true);
    add("", "1", false);
    add("\xff", "a", true);
}

void tst_Parts::versions()
{
    QFETCH(QByteArray, version);
    QFETCH(QByteArray, other);
    QFETCH(bool, newer);
    QCOMPARE(isNewerVersion(version.toStdString(), other.toStdString()), newer);
}

void tst_Parts::madeUpBytes()
{
    const Body body = Body::madeUp(1000, 7);
    const std::string whole = body.text();
    QCOMPARE(whole.size(), size_t(1000));
    for (const auto &[offset, size] : std::vector<std::pair<uint64_t, size_t>>{
             {0, 1}, {1, 7}, {5, 100}, {8, 8}, {993, 7}, {999, 1}})
        QCOMPARE(part(body, offset, size), whole.substr(offset, size));
    QVERIFY(Body::madeUp(1000, 8).text() != whole);
    QCOMPARE(Body::madeUp(1000, 7).text(), whole);
}

void tst_Parts::paddedBody()
{
    const Body body = Body::padded(Body(std::string("abcdef")), 2, 3, 'x');
    QCOMPARE(body.text(), std::string("abxxxcdef"));
    for (size_t offset = 0; offset < 9; ++offset)
        QCOMPARE(part(body, offset, 1), body.text().substr(offset, 1));
    QCOMPARE(part(body, 1, 5), std::string("bxxxc"));
}

void tst_Parts::base64()
{
    // RFC 4648, section 10.
    const std::vector<std::pair<std::string, std::string>> vectors = {{"", ""},
                                                                      {"f", "Zg=="},
                                                                      {"fo", "Zm8="},
                                                                      {"foo", "Zm9v"},
                                                                      {"foob", "Zm9vYg=="},
                                                                      {"fooba", "Zm9vYmE="},
                                                                      {"foobar", "Zm9vYmFy"}};
    for (const auto &[bytes, text] : vectors)
        QCOMPARE(toBase64(bytes), text);
    QCOMPARE(toBase64(std::string("\xff\xfe\0", 3)), std::string("//4A"));
}

void tst_Parts::xmlEscaping()
{
    QCOMPARE(xmlEscaped("a<b>&\"c'\n\t\x01"), std::string("a&lt;b&gt;&amp;\"c'\n\t"));
    QCOMPARE(xmlEscaped("\xc3\xbc"), std::string("\xc3\xbc"));
}

void tst_Parts::hugeAnswerStaysXml()
{
    Fault fault;
    fault.fillUpToBytes = 1000;
    Answer answer = xmlAnswer({{"is", "chkud"}, {"message", "hi"}}, fault);
    fillUp(answer, fault);
    QCOMPARE(answer.body.size(), uint64_t(1000));
    const std::string text = answer.body.text();
    QVERIFY(text.find("<message>hixxx") != std::string::npos);
    QCOMPARE(text.substr(text.size() - 21), std::string("x</message></response>").substr(1));
}

QTEST_GUILESS_MAIN(tst_Parts)
#include "tst_parts.moc"
