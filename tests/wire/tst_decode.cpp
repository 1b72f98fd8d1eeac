// Decoding what the service sends: booleans, defaults, wrong types, bounds, exact ids, lists and frames.

#include "Support/WireText.h"
#include "Wire/TarnwickModels.h"

#include "Table.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <limits>

namespace {
// A complete fill as the service writes it, with `key` set to the raw JSON
// `value` (a null value leaves the key out).
QByteArray fillJson(const QByteArray &key = {}, const QByteArray &value = {})
{
    QByteArrayList fields = QByteArray(R"("id":7,"ts":1700000000.5,"side":"buy","usd":2500,"handle":"kai",)"
                                       R"("wallet":"Wabc","token":"Mint1","symbol":"WIF")").split(',');
    fields.removeIf([&key](const QByteArray &f) { return f.startsWith(QByteArray('"' + key + "\":")); });
    if (!key.isEmpty() && !value.isNull())
        fields << '"' + key + "\":" + value;
    return '{' + fields.join(',') + '}';
}

std::optional<TwFill> decodeFill(const QByteArray &key, const QByteArray &value)
{
    return TwDecode::fill(QJsonDocument::fromJson(fillJson(key, value)).object());
}

// clang-format off
struct Lenient { const char *name, *value; bool expected; };
const Lenient lenient[] = {
    {"true", "true", true}, {"1", "1", true}, {"false", "false", false}, {"null", "null", false},
    {"string", R"("yes")", false}, {"fraction", "1.5", false}};

// A key of a fill set to a value (nullptr: left out); amounts past any real
// trade are malformed, market caps may reach trillions.
const QByteArray longest = '"' + QByteArray(2048, 'A') + '"', tooLong = '"' + QByteArray(2049, 'A') + '"';
struct Field { const char *name; QByteArray key, value; bool decodes; };
const Field fields[] = {
    {"complete", nullptr, nullptr, true}, {"usd missing is 0", "usd", nullptr, true},
    {"without id", "id", nullptr, false}, {"without ts", "ts", nullptr, false},
    {"without side", "side", nullptr, false}, {"without handle", "handle", nullptr, false},
    {"without wallet", "wallet", nullptr, false}, {"without token", "token", nullptr, false},
    {"without symbol", "symbol", nullptr, false},
    {"id as fraction", "id", "1.5", false}, {"id as string", "id", R"("7")", false},
    {"ts as string", "ts", R"("now")", false}, {"flags not strings", "flags", "[1,2]", false},
    {"price null is absent", "price", "null", true}, {"price wrong type fails", "price", R"("1.2")", false},
    {"unknown keys ignored", "x", R"({"a":[1]})", true},
    {"symbol at the longest", "symbol", longest, true}, {"symbol past the longest", "symbol", tooLong, false},
    {"usd 1e308", "usd", "1e308", false}, {"usd just over $1T", "usd", "1000000000001", false},
    {"usd at $1T", "usd", "1e12", true}, {"usd -1e13", "usd", "-1e13", false},
    {"price 1e300", "price", "1e300", false}, {"liquidity 5e12", "liquidity", "5e12", false},
    {"mcap $3T (an equity)", "mcap", "3e12", true}, {"mcap 1e300", "mcap", "1e300", false},
    // No trade, price or pool is negative.
    {"usd -1", "usd", "-1", false}, {"usd -9e11", "usd", "-9e11", false}, {"usd 0", "usd", "0", true},
    {"price -0.5", "price", "-0.5", false}, {"mark -1", "mark", "-1", false},
    {"liquidity -3", "liquidity", "-3", false}, {"mcap -1", "mcap", "-1", false}};

// An id beside a good fill: 0, the fill is dropped; -1, the body does not parse.
struct Id { const char *name, *id; qint64 expected; };
const Id ids[] = {
    {"int64 max", "9223372036854775807", std::numeric_limits<qint64>::max()},
    {"2^53 + 1", "9007199254740993", Q_INT64_C(9007199254740993)},
    {"a whole number written with a point", "12.0", 12},
    {"just past int64", "9223372036854775808", 0}, {"a double past int64", "1e300", 0},
    {"beyond a double (no JSON the parser takes)", "1e400", -1}};

// Every record kind: a wrong type fails it even where the key is optional,
// null counts as absent, and a list answer fails whole on one bad element
// (but a bad fill drops only itself). The count is of records (of bags for a
// detail); -1: the answer fails.
const QByteArray good = fillJson();
using Count = int (*)(const QByteArray &);
template <typename T> int counted(const std::optional<T> &d) { return d ? int(d->size()) : -1; }
const Count fills = [](const QByteArray &b) { return counted(TwDecode::fills(b)); };
const Count radars = [](const QByteArray &b) { return counted(TwDecode::radars(b)); };
const Count tokens = [](const QByteArray &b) { return counted(TwDecode::tokens(b)); };
const Count traders = [](const QByteArray &b) { return counted(TwDecode::traders(b)); };
const Count bags = [](const QByteArray &b) {
    const auto d = TwDecode::traderDetail(b);
    return d ? int(d->bags.size()) : -1;
};
struct Record { const char *name; Count decode; int count; QByteArray body; };
const Record answers[] = {
    {"two fills", fills, 2, '[' + good + ',' + good + ']'},
    {"a fill without a symbol drops only itself", fills, 1, '[' + good + ',' + fillJson("symbol") + ']'},
    {"fill list as an object", fills, -1, R"({"data":[]})"},
    {"radar without buyers", radars, 1, R"([{"token":"M","symbol":"P","first_ts":1}])"},
    {"radar without first_ts", radars, -1, R"([{"token":"M","symbol":"P"}])"},
    {"radar buyers fraction", radars, -1, R"([{"token":"M","symbol":"P","first_ts":1,"buyers":2.5}])"},
    {"radar usd_in at $1T", radars, 1, R"([{"token":"M","symbol":"P","first_ts":1,"usd_in":1e12}])"},
    {"radar usd_in past $1T", radars, -1, R"([{"token":"M","symbol":"P","first_ts":1,"usd_in":-2e12}])"},
    {"radar usd_in negative", radars, -1, R"([{"token":"M","symbol":"P","first_ts":1,"usd_in":-5}])"},
    {"token volume negative", tokens, -1, R"([{"token":"M","symbol":"P","volume24":-1}])"},
    {"trader losses are signed", traders, 1,
     R"([{"address":"A","handle":"k","realized_pnl":-5000,"unrealized_pnl":-2}])"},
    {"trader open cost negative", traders, -1, R"([{"address":"A","handle":"k","open_cost":-1}])"},
    {"bag cost negative", bags, -1, R"({"address":"A","handle":"k","bags":[{"symbol":"W","cost_usd":-10}]})"},
    {"token honeypot true", tokens, 1, R"([{"token":"M","symbol":"P","honeypot":true}])"},
    {"token honeypot is strict", tokens, -1, R"([{"token":"M","symbol":"P","honeypot":1}])"},
    {"token pair_url number", tokens, -1, R"([{"token":"M","symbol":"P","pair_url":5}])"},
    {"trader", traders, 1, R"([{"address":"A","handle":"k","win_rate":0.6,"closed_trades":12}])"},
    {"trader handle null", traders, -1, R"([{"address":"A","handle":null}])"},
    {"one bad trader fails the list", traders, -1,
     R"([{"address":"A","handle":"k"},{"address":"B","handle":"j","wins":"3"}])"},
    {"detail without bags", bags, 0, R"({"address":"A","handle":"k"})"},
    {"detail with two bags", bags, 2,
     R"({"address":"A","handle":"k","bags":[{"symbol":"W","cost_usd":10},{"symbol":"M"}]})"},
    {"bag without a symbol", bags, -1, R"({"address":"A","handle":"k","bags":[{"value":3}]})"},
    {"detail bags not a list", bags, -1, R"({"address":"A","handle":"k","bags":{}})"},
    {"detail bags null is empty", bags, 0, R"({"address":"A","handle":"k","bags":null})"},
    {"detail as a list", bags, -1, R"([{"address":"A","handle":"k"}])"}};

// A type of nullptr: the frame fails; fills -1: no data.
struct Frame { const char *name; QByteArray bytes; const char *type; int fills; };
const Frame frames[] = {
    {"fills", R"({"type":"fills","data":[)" + good + "]}", "fills", 1},
    {"fills one bad element drops only itself", R"({"type":"fills","data":[)" + good + ",{}]}", "fills", 1},
    {"other type ignores data", R"({"type":"stats","data":[)" + good + "]}", "stats", -1},
    {"no type", R"({"data":[]})", nullptr, -1}, {"type not text", R"({"type":3})", nullptr, -1},
    {"not json", "hello", nullptr, -1}, {"deep nesting", QByteArray(100000, '['), nullptr, -1},
    {"invalid utf-8", "{\"type\":\"\xff\xfe\"}", nullptr, -1}};

// Wire text cannot reorder its row, split a line or hide characters.
struct Text { const char *name; std::u16string_view sent, kept; };
const Text texts[] = {
    {"plain", u"WIF", u"WIF"}, {"right-to-left override", u"WIF\u202E000,05$", u"WIF000,05$"},
    {"every embedding, isolate and mark",
     u"a\u202Ab\u202Bc\u202Cd\u202De\u2066f\u2067g\u2068h\u2069i\u200Ej\u200Fk\u061Cl", u"abcdefghijkl"},
    {"line breaks become spaces", u"a\nb\r\nc\u2028d", u"a b  c d"},
    {"C0 and C1 controls", std::u16string_view(u"a\0\u0007b\u009Bc\u007F", 7), u"abc"},
    {"right-to-left letters stay", u"\u05E9\u05DC\u05D5\u05DD", u"\u05E9\u05DC\u05D5\u05DD"},
    {"zero-width joiner and grapheme joiner", u"Z\u200DW\u034FJ", u"ZWJ"},
    {"zero-width space, soft hyphen, BOM, word joiner", u"\u200BW\u00ADI\uFEFFF\u2060", u"WIF"},
    {"tags and variation selectors (outside the BMP too)", u"W\U000E0041I\uFE0FF\U000E0100", u"WIF"},
    {"Hangul fillers", u"W\u3164I\u115FF", u"WIF"},
    {"emoji and CJK stay", u"\u72D7\U0001F436", u"\u72D7\U0001F436"}};

// A symbol that may pass for another one is told apart.
struct Alike { const char *name; std::u16string_view symbol; bool flagged; };
const Alike alikes[] = {
    {"ASCII", u"WIF", false}, {"CJK alone", u"\u72D7\u72D7", false}, {"Hebrew alone", u"\u05E9\u05DC", false},
    {"Cyrillic E in PEPE", u"P\u0415PE", true}, {"all Cyrillic look-alikes (BOT)", u"\u0412\u041E\u0422", true},
    {"Greek omicron", u"D\u039FG", true}, {"fullwidth", u"\uFF37\uFF29\uFF26", true},
    {"mathematical bold", u"\U0001D416IF", true}, {"Latin and CJK mixed", u"DOG\u72D7", true},
    {"ligature", u"\uFB01SH", true}};
// clang-format on
} // namespace

class DecodeTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    // A handle is shown cleaned, but the service knows its trader by the
    // handle as sent: that one is kept for the lookup, and only then.
    void handleAsSent()
    {
        const auto broken = decodeFill("handle", R"("line\nbreak_handle")");
        QVERIFY(broken);
        QCOMPARE(broken->handle, QStringLiteral("line break_handle"));
        QCOMPARE(broken->handleSent, QStringLiteral("line\nbreak_handle"));
        const auto plain = decodeFill({}, {});
        QVERIFY(plain);
        QVERIFY(plain->handleSent.isEmpty());
    }

    void lenientBooleans_data() { rows(lenient); }
    void lenientBooleans()
    {
        const Lenient &r = row(lenient);
        const auto f = decodeFill("is_stock", QByteArray(r.value) + ",\"new_position\":" + r.value);
        QVERIFY2(f, "a lenient boolean never fails the fill");
        QCOMPARE(f->isStock, r.expected);
        QCOMPARE(f->newPosition, r.expected);
    }

    void fillFields_data() { rows(fields); }
    void fillFields()
    {
        const Field &r = row(fields);
        const auto f = decodeFill(r.key, r.value);
        QCOMPARE(f.has_value(), r.decodes);
        if (f && r.key == "usd" && r.value.isNull()) {
            // What is left out reads as empty, never as made-up values.
            QCOMPARE(f->usd, 0.0);
            QVERIFY(f->flags.isEmpty() && !f->price && !f->followers);
        }
    }

    void integersStayExact_data() { rows(ids); }
    void integersStayExact()
    {
        const Id &r = row(ids);
        // Beside a good fill: a bad id drops its own fill only.
        int dropped = -1;
        const auto list = TwDecode::fills('[' + fillJson("id", r.id) + ',' + good + ']', &dropped);
        QCOMPARE(list.has_value(), r.expected >= 0);
        if (!list)
            return;
        QCOMPARE(list->size(), r.expected ? 2 : 1);
        QCOMPARE(dropped, r.expected ? 0 : 1);
        QCOMPARE(list->first().id, r.expected ? r.expected : qint64(7));
    }

    void records_data() { rows(answers); }
    void records() { QCOMPARE(row(answers).decode(row(answers).body), row(answers).count); }

    void socketFrames_data() { rows(frames); }
    void socketFrames()
    {
        const Frame &r = row(frames);
        const auto frame = TwDecode::socketFrame(r.bytes);
        QCOMPARE(frame.has_value(), r.type != nullptr);
        if (!frame)
            return;
        QCOMPARE(frame->type, QLatin1String(r.type));
        QCOMPARE(frame->data ? int(frame->data->size()) : -1, r.fills);
    }

    void wireTextIsCleaned_data() { rows(texts); }
    void wireTextIsCleaned()
    {
        const Text &r = row(texts);
        const QString kept = QStringView(r.kept).toString();
        const QJsonArray sent{QStringView(r.sent).toString()};
        const QByteArray json = QJsonDocument(sent).toJson(QJsonDocument::Compact).mid(1).chopped(1);
        QCOMPARE(decodeFill("symbol", json).value().symbol, kept);
        QCOMPARE(decodeFill("handle", json).value().handle, kept);
        QCOMPARE(decodeFill("name", json).value().name, std::optional(kept));
        QCOMPARE(decodeFill("flags", '[' + json + ']').value().flags, QStringList{kept});
    }

    void lookAlikeSymbols_data() { rows(alikes); }
    void lookAlikeSymbols()
    {
        const Alike &r = row(alikes);
        QCOMPARE(WireText::isLookAlike(QStringView(r.symbol).toString()), r.flagged);
    }
};

QTEST_APPLESS_MAIN(DecodeTest)
#include "tst_decode.moc"
