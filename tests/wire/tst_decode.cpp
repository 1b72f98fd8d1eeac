// Decoding what the service sends: lenient and strict booleans, defaults,
// wrong types, exact 64-bit ids, whole-list failure and socket frames.

#include "Feed/TarnwickModels.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <limits>

namespace {
QByteArray baseFill(const QByteArray &extra = {}, const QByteArray &without = {})
{
    QList<QByteArray> keys = {R"("id":7)",          R"("ts":1700000000.5)", R"("side":"buy")",
                              R"("usd":2500)",      R"("handle":"kai")",    R"("wallet":"Wabc")",
                              R"("token":"Mint1")", R"("symbol":"WIF")"};
    keys.removeIf([&](const QByteArray &k) {
        return !without.isEmpty() && k.startsWith(QByteArray("\"" + without + "\""));
    });
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
        const auto f = decodeFill(
            value.isNull() ? baseFill() : baseFill("\"is_stock\":" + value + ",\"new_position\":" + value));
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
        QTest::newRow("markup handle is just text")
            << baseFill({}, "handle").replace("{", R"({"handle":"<b>x</b>",)") << true;
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
        const auto list =
            TwDecode::fills("[" + baseFill({}, "id").replace("{", R"({"id":9007199254740993,)") + "]");
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
        QVERIFY(
            !TwDecode::traderDetail(QByteArray(R"({"address":"A","handle":"kai","bags":[{"value":3}]})")));
        const auto two = TwDecode::traderDetail(QByteArray(
            R"({"address":"A","handle":"kai","bags":[{"symbol":"WIF","cost_usd":10},{"symbol":"MEW"}]})"));
        QVERIFY(two);
        QCOMPARE(two->bags.size(), 2);
        QCOMPARE(two->bags[0].costUsd, std::optional(10.0));
    }

    // Every record kind: a wrong type fails it even where the key is optional,
    // null counts as absent, and a list answer fails whole.
    void wrongTypesFailTheRecord_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QByteArray>("kind");
        QTest::addColumn<bool>("decodes");
        QTest::newRow("radar buyers fraction")
            << QByteArray(R"([{"token":"M","symbol":"P","first_ts":1,"buyers":2.5}])") << QByteArray("radar")
            << false;
        QTest::newRow("radar buyers null is 0")
            << QByteArray(R"([{"token":"M","symbol":"P","first_ts":1,"buyers":null}])") << QByteArray("radar")
            << true;
        QTest::newRow("radar is_stock text stays lenient")
            << QByteArray(R"([{"token":"M","symbol":"P","first_ts":1,"is_stock":"yes"}])")
            << QByteArray("radar") << true;
        QTest::newRow("radar pool_age text")
            << QByteArray(R"([{"token":"M","symbol":"P","first_ts":1,"pool_age":"2h"}])")
            << QByteArray("radar") << false;
        QTest::newRow("token honeypot null")
            << QByteArray(R"([{"token":"M","symbol":"P","honeypot":null}])") << QByteArray("token") << true;
        QTest::newRow("token holders fraction")
            << QByteArray(R"([{"token":"M","symbol":"P","holders":1.5}])") << QByteArray("token") << false;
        QTest::newRow("token pair_url number")
            << QByteArray(R"([{"token":"M","symbol":"P","pair_url":5}])") << QByteArray("token") << false;
        QTest::newRow("trader win_rate text")
            << QByteArray(R"([{"address":"A","handle":"k","win_rate":"60%"}])") << QByteArray("trader")
            << false;
        QTest::newRow("trader handle null")
            << QByteArray(R"([{"address":"A","handle":null}])") << QByteArray("trader") << false;
        QTest::newRow("one bad trader fails the list")
            << QByteArray(R"([{"address":"A","handle":"k"},{"address":"B","handle":"j","wins":"3"}])")
            << QByteArray("trader") << false;
        QTest::newRow("detail bags not a list")
            << QByteArray(R"({"address":"A","handle":"k","bags":{}})") << QByteArray("detail") << false;
        QTest::newRow("detail bags null is empty")
            << QByteArray(R"({"address":"A","handle":"k","bags":null})") << QByteArray("detail") << true;
        QTest::newRow("bag cost text")
            << QByteArray(R"({"address":"A","handle":"k","bags":[{"symbol":"W","cost_usd":"9"}]})")
            << QByteArray("detail") << false;
        QTest::newRow("detail num_trades fraction")
            << QByteArray(R"({"address":"A","handle":"k","num_trades":2.5})") << QByteArray("detail")
            << false;
        QTest::newRow("detail as a list")
            << QByteArray(R"([{"address":"A","handle":"k"}])") << QByteArray("detail") << false;
        QTest::newRow("fill list answer as an object")
            << QByteArray(R"({"data":[]})") << QByteArray("fill") << false;
    }
    void wrongTypesFailTheRecord()
    {
        QFETCH(QByteArray, body);
        QFETCH(QByteArray, kind);
        QFETCH(bool, decodes);
        bool got = false;
        if (kind == "radar")
            got = TwDecode::radars(body).has_value();
        else if (kind == "token")
            got = TwDecode::tokens(body).has_value();
        else if (kind == "trader")
            got = TwDecode::traders(body).has_value();
        else if (kind == "detail")
            got = TwDecode::traderDetail(body).has_value();
        else
            got = TwDecode::fills(body).has_value();
        QCOMPARE(got, decodes);
    }

    void integersStayExact_data()
    {
        QTest::addColumn<QByteArray>("id");
        QTest::addColumn<qint64>("expected"); // 0: the fill does not decode
        QTest::newRow("int64 max") << QByteArray("9223372036854775807") << std::numeric_limits<qint64>::max();
        QTest::newRow("int64 min") << QByteArray("-9223372036854775808")
                                   << std::numeric_limits<qint64>::min();
        QTest::newRow("2^53 + 1") << QByteArray("9007199254740993") << Q_INT64_C(9007199254740993);
        QTest::newRow("a whole number written with a point") << QByteArray("12.0") << qint64(12);
        QTest::newRow("just past int64") << QByteArray("9223372036854775808") << qint64(0);
        QTest::newRow("beyond a double") << QByteArray("1e400") << qint64(0);
    }
    void integersStayExact()
    {
        QFETCH(QByteArray, id);
        QFETCH(qint64, expected);
        const auto list =
            TwDecode::fills("[" + baseFill({}, "id").replace("{", QByteArray("{\"id\":" + id + ",")) + "]");
        QCOMPARE(list ? list->first().id : qint64(0), expected);
    }

    void socketFrames_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("decodes");
        QTest::addColumn<QString>("type");
        QTest::addColumn<int>("fills"); // -1: data absent
        QTest::newRow("fills") << "{\"type\":\"fills\",\"data\":[" + baseFill() + "]}" << true << "fills"
                               << 1;
        QTest::newRow("fills with object data")
            << QByteArray(R"({"type":"fills","data":{}})") << true << "fills" << -1;
        QTest::newRow("fills one bad element")
            << "{\"type\":\"fills\",\"data\":[" + baseFill() + ",{}]}" << true << "fills" << -1;
        QTest::newRow("fills without data") << QByteArray(R"({"type":"fills"})") << true << "fills" << -1;
        QTest::newRow("other type ignores data")
            << "{\"type\":\"stats\",\"data\":[" + baseFill() + "]}" << true << "stats" << -1;
        QTest::newRow("no type") << QByteArray(R"({"data":[]})") << false << "" << -1;
        QTest::newRow("type not text") << QByteArray(R"({"type":3})") << false << "" << -1;
        QTest::newRow("not json") << QByteArray("hello") << false << "" << -1;
        QTest::newRow("array") << QByteArray("[1,2]") << false << "" << -1;
        QTest::newRow("empty") << QByteArray() << false << "" << -1;
        QTest::newRow("deep nesting") << QByteArray(100000, '[') << false << "" << -1;
        QTest::newRow("invalid utf-8 is undecodable")
            << QByteArray("{\"type\":\"\xff\xfe\"}") << false << "" << -1;
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
