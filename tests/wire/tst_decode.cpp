// Decoding what the service sends: booleans, defaults, wrong types, exact ids, lists and frames.

#include "Wire/TarnwickModels.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <limits>

namespace {
// A complete fill as the service writes it, with `key` set to the raw JSON
// `value` (a null value leaves the key out).
QByteArray fillJson(const QByteArray &key = {}, const QByteArray &value = {})
{
    static const QList<QByteArray> keys{"id", "ts", "side", "usd", "handle", "wallet", "token", "symbol"};
    static const QList<QByteArray> values{"7",        "1700000000.5", R"("buy")",   R"(2500)",
                                          R"("kai")", R"("Wabc")",    R"("Mint1")", R"("WIF")"};
    QList<QByteArray> fields;
    for (qsizetype i = 0; i < keys.size(); ++i)
        if (keys[i] != key)
            fields << '"' + keys[i] + "\":" + values[i];
    if (!key.isEmpty() && !value.isNull())
        fields << '"' + key + "\":" + value;
    return '{' + fields.join(',') + '}';
}

std::optional<TwFill> decodeFill(const QByteArray &json)
{
    return TwDecode::fill(QJsonDocument::fromJson(json).object());
}

void record(const char *name, const char *kind, int count, const QByteArray &body)
{
    QTest::newRow(name) << QByteArray(kind) << body << count;
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
        QTest::newRow("false") << QByteArray("false") << false;
        QTest::newRow("null") << QByteArray("null") << false;
        QTest::newRow("string") << QByteArray(R"("yes")") << false;
        QTest::newRow("fraction") << QByteArray("1.5") << false;
    }
    void lenientBooleans()
    {
        QFETCH(QByteArray, value);
        QFETCH(bool, expected);
        const auto f = decodeFill(fillJson("is_stock", value + ",\"new_position\":" + value));
        QVERIFY2(f, "a lenient boolean never fails the fill");
        QCOMPARE(f->isStock, expected);
        QCOMPARE(f->newPosition, expected);
    }

    void fillFields_data()
    {
        QTest::addColumn<QByteArray>("key");
        QTest::addColumn<QByteArray>("value"); // null: left out
        QTest::addColumn<bool>("decodes");
        QTest::newRow("complete") << QByteArray() << QByteArray() << true;
        for (const char *key : {"id", "ts", "side", "handle", "wallet", "token", "symbol"})
            QTest::addRow("without %s", key) << QByteArray(key) << QByteArray() << false;
        QTest::newRow("usd missing is 0") << QByteArray("usd") << QByteArray() << true;
        QTest::newRow("id as fraction") << QByteArray("id") << QByteArray("1.5") << false;
        QTest::newRow("id as string") << QByteArray("id") << QByteArray(R"("7")") << false;
        QTest::newRow("ts as string") << QByteArray("ts") << QByteArray(R"("now")") << false;
        QTest::newRow("price null stays absent") << QByteArray("price") << QByteArray("null") << true;
        QTest::newRow("price wrong type fails") << QByteArray("price") << QByteArray(R"("1.2")") << false;
        QTest::newRow("flags not strings") << QByteArray("flags") << QByteArray("[1,2]") << false;
        QTest::newRow("unknown keys ignored") << QByteArray("x") << QByteArray(R"({"a":[1]})") << true;
    }
    void fillFields()
    {
        QFETCH(QByteArray, key);
        QFETCH(QByteArray, value);
        QFETCH(bool, decodes);
        const auto f = decodeFill(fillJson(key, value));
        QCOMPARE(f.has_value(), decodes);
        if (f && key == "usd") {
            // What is left out reads as empty, never as made-up values.
            QCOMPARE(f->usd, 0.0);
            QVERIFY(f->flags.isEmpty() && !f->price && !f->followers);
        }
    }

    void integersStayExact_data()
    {
        QTest::addColumn<QByteArray>("id");
        QTest::addColumn<qint64>("expected"); // 0: the fill is dropped; -1: the body does not parse
        QTest::newRow("int64 max") << QByteArray("9223372036854775807") << std::numeric_limits<qint64>::max();
        QTest::newRow("2^53 + 1") << QByteArray("9007199254740993") << Q_INT64_C(9007199254740993);
        QTest::newRow("a whole number written with a point") << QByteArray("12.0") << qint64(12);
        QTest::newRow("just past int64") << QByteArray("9223372036854775808") << qint64(0);
        QTest::newRow("a double past int64") << QByteArray("1e300") << qint64(0);
        QTest::newRow("beyond a double (no JSON the parser takes)") << QByteArray("1e400") << qint64(-1);
    }
    void integersStayExact()
    {
        QFETCH(QByteArray, id);
        QFETCH(qint64, expected);
        // Beside a good fill: a bad id drops its own fill only.
        int dropped = -1;
        const auto list = TwDecode::fills('[' + fillJson("id", id) + ',' + fillJson() + ']', &dropped);
        QCOMPARE(list.has_value(), expected >= 0);
        if (!list)
            return;
        QCOMPARE(list->size(), expected ? 2 : 1);
        QCOMPARE(dropped, expected ? 0 : 1);
        QCOMPARE(list->first().id, expected ? expected : qint64(7));
    }

    // Every record kind: a wrong type fails it even where the key is optional,
    // null counts as absent, and a list answer fails whole on one bad element
    // (but a bad fill drops only itself).
    void records_data()
    {
        QTest::addColumn<QByteArray>("kind");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<int>("count"); // records (bags for a detail); -1: fails
        const QByteArray good = fillJson();
        record("two fills", "fill", 2, '[' + good + ',' + good + ']');
        record("a fill without a symbol drops only itself", "fill", 1,
               '[' + good + ',' + fillJson("symbol") + ']');
        record("fill list as an object", "fill", -1, R"({"data":[]})");
        record("radar without buyers", "radar", 1, R"([{"token":"M","symbol":"P","first_ts":1}])");
        record("radar without first_ts", "radar", -1, R"([{"token":"M","symbol":"P"}])");
        record("radar buyers fraction", "radar", -1,
               R"([{"token":"M","symbol":"P","first_ts":1,"buyers":2.5}])");
        record("token honeypot true", "token", 1, R"([{"token":"M","symbol":"P","honeypot":true}])");
        record("token honeypot is strict", "token", -1, R"([{"token":"M","symbol":"P","honeypot":1}])");
        record("token pair_url number", "token", -1, R"([{"token":"M","symbol":"P","pair_url":5}])");
        record("trader", "trader", 1, R"([{"address":"A","handle":"k","win_rate":0.6,"closed_trades":12}])");
        record("trader handle null", "trader", -1, R"([{"address":"A","handle":null}])");
        record("one bad trader fails the list", "trader", -1,
               R"([{"address":"A","handle":"k"},{"address":"B","handle":"j","wins":"3"}])");
        record("detail without bags", "detail", 0, R"({"address":"A","handle":"k"})");
        record("detail with two bags", "detail", 2,
               R"({"address":"A","handle":"k","bags":[{"symbol":"W","cost_usd":10},{"symbol":"M"}]})");
        record("bag without a symbol", "detail", -1, R"({"address":"A","handle":"k","bags":[{"value":3}]})");
        record("detail bags not a list", "detail", -1, R"({"address":"A","handle":"k","bags":{}})");
        record("detail bags null is empty", "detail", 0, R"({"address":"A","handle":"k","bags":null})");
        record("detail as a list", "detail", -1, R"([{"address":"A","handle":"k"}])");
    }
    void records()
    {
        QFETCH(QByteArray, kind);
        QFETCH(QByteArray, body);
        QFETCH(int, count);
        const auto size = [](const auto &decoded) { return decoded ? int(decoded->size()) : -1; };
        int got = -1;
        if (kind == "fill")
            got = size(TwDecode::fills(body));
        else if (kind == "radar")
            got = size(TwDecode::radars(body));
        else if (kind == "token")
            got = size(TwDecode::tokens(body));
        else if (kind == "trader")
            got = size(TwDecode::traders(body));
        else if (const auto detail = TwDecode::traderDetail(body))
            got = int(detail->bags.size());
        QCOMPARE(got, count);
    }

    void socketFrames_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("decodes");
        QTest::addColumn<QString>("type");
        QTest::addColumn<int>("fills"); // -1: data absent
        const QByteArray fill = fillJson();
        QTest::newRow("fills") << R"({"type":"fills","data":[)" + fill + "]}" << true << "fills" << 1;
        QTest::newRow("fills one bad element drops only itself")
            << R"({"type":"fills","data":[)" + fill + ",{}]}" << true << "fills" << 1;
        QTest::newRow("other type ignores data")
            << R"({"type":"stats","data":[)" + fill + "]}" << true << "stats" << -1;
        QTest::newRow("no type") << QByteArray(R"({"data":[]})") << false << "" << -1;
        QTest::newRow("type not text") << QByteArray(R"({"type":3})") << false << "" << -1;
        QTest::newRow("not json") << QByteArray("hello") << false << "" << -1;
        QTest::newRow("deep nesting") << QByteArray(100000, '[') << false << "" << -1;
        QTest::newRow("invalid utf-8") << QByteArray("{\"type\":\"\xff\xfe\"}") << false << "" << -1;
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

    // Amounts past any real trade are malformed; market caps may reach trillions.
    void implausibleAmounts_data()
    {
        QTest::addColumn<QByteArray>("key");
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<bool>("decodes");
        QTest::newRow("usd 1e308") << QByteArray("usd") << QByteArray("1e308") << false;
        QTest::newRow("usd just over $1T") << QByteArray("usd") << QByteArray("1000000000001") << false;
        QTest::newRow("usd at $1T") << QByteArray("usd") << QByteArray("1e12") << true;
        QTest::newRow("usd -1e13") << QByteArray("usd") << QByteArray("-1e13") << false;
        QTest::newRow("price 1e300") << QByteArray("price") << QByteArray("1e300") << false;
        QTest::newRow("liquidity 5e12") << QByteArray("liquidity") << QByteArray("5e12") << false;
        QTest::newRow("mcap $3T (an equity)") << QByteArray("mcap") << QByteArray("3e12") << true;
        QTest::newRow("mcap 1e300") << QByteArray("mcap") << QByteArray("1e300") << false;
    }
    void implausibleAmounts()
    {
        QFETCH(QByteArray, key);
        QFETCH(QByteArray, value);
        QFETCH(bool, decodes);
        QCOMPARE(decodeFill(fillJson(key, value)).has_value(), decodes);
        const auto radar =
            TwDecode::radars(R"([{"token":"M","symbol":"P","first_ts":1,"usd_in":)" + value + "}]");
        if (key == "usd")
            QCOMPARE(radar.has_value(), decodes);
    }

    // Wire text cannot reorder its row, split a line or hide characters.
    void wireTextIsCleaned_data()
    {
        QTest::addColumn<QString>("sent");
        QTest::addColumn<QString>("kept");
        QTest::newRow("plain") << QStringLiteral("WIF") << QStringLiteral("WIF");
        QTest::newRow("right-to-left override")
            << QStringLiteral("WIF\u202E000,05$") << QStringLiteral("WIF000,05$");
        QTest::newRow("every embedding, isolate and mark")
            << QStringLiteral(
                   "a\u202Ab\u202Bc\u202Cd\u202De\u2066f\u2067g\u2068h\u2069i\u200Ej\u200Fk\u061Cl")
            << QStringLiteral("abcdefghijkl");
        QTest::newRow("line breaks become spaces")
            << QStringLiteral("a\nb\r\nc\u2028d") << QStringLiteral("a b  c d");
        QTest::newRow("C0 and C1 controls") << QStringLiteral("a") + QChar(0) + QChar(7) + QLatin1Char('b') +
                                                   QChar(0x9B) + QLatin1Char('c') + QChar(0x7F)
                                            << QStringLiteral("abc");
        QTest::newRow("right-to-left letters stay")
            << QStringLiteral("\u05E9\u05DC\u05D5\u05DD") << QStringLiteral("\u05E9\u05DC\u05D5\u05DD");
    }
    void wireTextIsCleaned()
    {
        QFETCH(QString, sent);
        QFETCH(QString, kept);
        const QByteArray quoted =
            QJsonDocument(QJsonArray{sent}).toJson(QJsonDocument::Compact).mid(1).chopped(1);
        for (const char *key : {"symbol", "handle", "name"}) {
            const auto f = decodeFill(fillJson(key, quoted));
            QVERIFY(f);
            const QString got = QByteArray(key) == "symbol"   ? f->symbol
                                : QByteArray(key) == "handle" ? f->handle
                                                              : f->name.value_or(QString());
            QCOMPARE(got, kept);
        }
        const auto flagged = decodeFill(fillJson("flags", "[" + quoted + "]"));
        QVERIFY(flagged);
        QCOMPARE(flagged->flags, QStringList{kept});
    }

    void overlongTextFailsItsRecord()
    {
        QVERIFY(decodeFill(fillJson("symbol", '"' + QByteArray(2048, 'A') + '"')));
        QVERIFY(!decodeFill(fillJson("symbol", '"' + QByteArray(2049, 'A') + '"')));
    }
};

QTEST_APPLESS_MAIN(DecodeTest)
#include "tst_decode.moc"
