// Decoding what the service sends: lenient and strict booleans, defaults,
// wrong types, exact 64-bit ids, whole-list failure and socket frames.

#include "Feed/TarnwickModels.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

namespace {
QByteArray baseFill(const QByteArray &extra = {}, const QByteArray &without = {})
{
    QList<QByteArray> keys = {R"("id":7)",        R"("ts":1700000000.5)", R"("side":"buy")", R"("usd":2500)",
                              R"("handle":"kai")", R"("wallet":"Wabc")",   R"("token":"Mint1")", R"("symbol":"WIF")"};
    keys.removeIf([&](const QByteArray &k) { return !without.isEmpty() && k.startsWith(QByteArray("\"" + without + "\"")); });
    if (!extra.isEmpty())
        keys << extra;
    return "{" + keys.join(',') + "}";
}

std::optional<TwFill> decodeFill(const QByteArray &json)
{
    return TwDecode::fill(QJsonDocument::fromJson(json).object());
}
} // namespace

class DecodeTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void lenientBooleans_data()
    {
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<bool>("expected");
        QTest::newRow("true") << QByteArray("true") << true;
        QTest::newRow("1") << QByteArray("1") << true;
        QTest::newRow("7") << QByteArray("7") << true;
        QTest::newRow("-1") << QByteArray("-1") << true;
        QTest::newRow("false") << QByteArray("false") << false;
        QTest::newRow("0") << QByteArray("0") << false;
        QTest::newRow("null") << QByteArray("null") << false;
        QTest::newRow("missing") << QByteArray() << false;
        QTest::newRow("string") << QByteArray(R"("yes")") << false;
        QTest::newRow("fraction") << QByteArray("1.5") << false;
    }
    void lenientBooleans()
    {
        QFETCH(QByteArray, value);
        QFETCH(bool, expected);
        const auto f = decodeFill(value.isNull() ? baseFill() : baseFill("\"is_stock\":" + value + ",\"new_position\":" + value));
        QVERIFY2(f, "a lenient boolean never fails the fill");
        QCOMPARE(f->isStock, expected);
        QCOMPARE(f->newPosition, expected);
    }

    void requiredAndOptional_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<bool>("decodes");
        QTest::newRow("complete") << baseFill() << true;
        for (const char *key : {"id", "ts", "side", "handle", "wallet", "token", "symbol"})
            QTest::addRow("without %s", key) << baseFill({}, key) << false;
        QTest::newRow("usd missing is 0") << baseFill({}, "usd") << true;
        QTest::newRow("id as fraction") << baseFill({}, "id").replace("{", R"({"id":1.5,)") << false;
        QTest::newRow("id as string") << baseFill({}, "id").replace("{", R"({"id":"7",)") << false;
        QTest::newRow("ts as string") << baseFill({}, "ts").replace("{", R"({"ts":"now",)") << false;
        QTest::newRow("ts null") << baseFill({}, "ts").replace("{", R"({"ts":null,)") << false;
        QTest::newRow("price null stays absent") << baseFill(R"("price":null)") << true;
        QTest::newRow("price wrong type fails") << baseFill(R"("price":"1.2")") << false;
        QTest::newRow("followers fraction fails") << baseFill(R"("followers":10.5)") << false;
        QTest::newRow("flags not strings") << baseFill(R"("flags":[1,2])") << false;
        QTest::newRow("unknown keys ignored") << baseFill(R"("whatever":{"a":[1]})") << true;
        QTest::newRow("markup handle is just text") << baseFill({}, "handle").replace("{", R"({"handle":"<b>x</b>",)")
                                                    << true;
    }
    void requiredAndOptional()
    {
        QFETCH(QByteArray, json);
        QFETCH(bool, decodes);
        QCOMPARE(decodeFill(json).has_value(), decodes);
    }

    void defaultsAndAbsence()
    {
        const auto f = decodeFill(baseFill({}, "usd"));
        QVERIFY(f);
        QCOMPARE(f->usd, 0.0);
        QVERIFY(f->flags.isEmpty());
        QVERIFY(!f->price);
        QVERIFY(!f->followers);
    }

    void sixtyFourBitIdsSurvive()
    {
        const auto list = TwDecode::fills("[" + baseFill({}, "id").replace("{", R"({"id":9007199254740993,)") + "]");
        QVERIFY(list);
        QCOMPARE(list->first().id, Q_INT64_C(9007199254740993));
        QVERIFY(!TwDecode::fills("[" + baseFill({}, "id").replace("{", R"({"id":1e300,)") + "]"));
    }

    void listsFailWhole()
    {
        QVERIFY(TwDecode::fills("[" + baseFill() + "," + baseFill() + "]"));
        QVERIFY(!TwDecode::fills("[" + baseFill() + "," + baseFill({}, "symbol") + "]"));
        QVERIFY(!TwDecode::fills("{}"));
        QVERIFY(!TwDecode::fills("not json"));
        QCOMPARE(TwDecode::fills("[]")->size(), 0);
    }

    void radarAndTables()
    {
        const auto r = TwDecode::radars(R"([{"token":"M","symbol":"POP","first_ts":1700000000}])");
        QVERIFY(r);
        QCOMPARE(r->first().buyers, 0);
        QVERIFY(!TwDecode::radars(R"([{"token":"M","symbol":"POP"}])"));
        QVERIFY(TwDecode::tokens(R"([{"token":"M","symbol":"POP","honeypot":true}])"));
        QVERIFY2(!TwDecode::tokens(R"([{"token":"M","symbol":"POP","honeypot":1}])"), "honeypot is strict");
        QVERIFY(!TwDecode::tokens(R"([{"token":"M","symbol":"POP","drained":"no"}])"));
        QVERIFY(TwDecode::traders(R"([{"address":"A","handle":"kai","win_rate":0.6,"closed_trades":12}])"));
        QVERIFY(!TwDecode::traders(R"([{"address":"A","handle":"kai","closed_trades":1.5}])"));
    }

    void traderDetailBags()
    {
        const auto none = TwDecode::traderDetail(QByteArray(R"({"address":"A","handle":"kai"})"));
        QVERIFY(none);
        QVERIFY(none->bags.isEmpty());
        QVERIFY(!TwDecode::traderDetail(QByteArray(R"({"address":"A","handle":"kai","bags":[{"value":3}]})")));
        const auto two = TwDecode::traderDetail(
            QByteArray(R"({"address":"A","handle":"kai","bags":[{"symbol":"WIF","cost_usd":10},{"symbol":"MEW"}]})"));
        QVERIFY(two);
        QCOMPARE(two->bags.size(), 2);
        QCOMPARE(two->bags[0].costUsd, std::optional(10.0));
    }

    void socketFrames_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("decodes");
        QTest::addColumn<QString>("type");
        QTest::addColumn<int>("fills"); // -1: data absent
        QTest::newRow("fills") << "{\"type\":\"fills\",\"data\":[" + baseFill() + "]}" << true << "fills" << 1;
        QTest::newRow("fills with object data") << QByteArray(R"({"type":"fills","data":{}})") << true << "fills" << -1;
        QTest::newRow("fills one bad element") << "{\"type\":\"fills\",\"data\":[" + baseFill() + ",{}]}" << true
                                               << "fills" << -1;
        QTest::newRow("fills without data") << QByteArray(R"({"type":"fills"})") << true << "fills" << -1;
        QTest::newRow("other type ignores data") << "{\"type\":\"stats\",\"data\":[" + baseFill() + "]}" << true
                                                 << "stats" << -1;
        QTest::newRow("no type") << QByteArray(R"({"data":[]})") << false << "" << -1;
        QTest::newRow("type not text") << QByteArray(R"({"type":3})") << false << "" << -1;
        QTest::newRow("not json") << QByteArray("hello") << false << "" << -1;
        QTest::newRow("array") << QByteArray("[1,2]") << false << "" << -1;
        QTest::newRow("empty") << QByteArray() << false << "" << -1;
        QTest::newRow("deep nesting") << QByteArray(100000, '[') << false << "" << -1;
        QTest::newRow("invalid utf-8 is undecodable") << QByteArray("{\"type\":\"\xff\xfe\"}") << false << "" << -1;
    }
    void socketFrames()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(bool, decodes);
        QFETCH(QString, type);
        QFETCH(int, fills);
        const auto frame = TwDecode::socketFrame(bytes);
        QCOMPARE(frame.has_value(), decodes);
        if (!frame)
            return;
        QCOMPARE(frame->type, type);
        QCOMPARE(frame->data ? int(frame->data->size()) : -1, fills);
    }
};

QTEST_APPLESS_MAIN(DecodeTest)
#include "tst_decode.moc"
