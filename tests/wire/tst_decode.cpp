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
    {.name = "true", .value = "true", .expected = true},
    {.name = "1", .value = "1", .expected = true},
    {.name = "false", .value = "false", .expected = false},
    {.name = "null", .value = "null", .expected = false},
    {.name = "string", .value = R"("yes")", .expected = false},
    {.name = "fraction", .value = "1.5", .expected = false},
};

// A key of a fill set to a value (nullptr: left out); amounts past any real
// trade are malformed, market caps may reach trillions.
const QByteArray longest = '"' + QByteArray(2048, 'A') + '"', tooLong = '"' + QByteArray(2049, 'A') + '"';
struct Field { const char *name; QByteArray key, value; bool decodes; };
const Field fields[] = {
    {.name = "complete", .key = nullptr, .value = nullptr, .decodes = true},
    {.name = "usd missing is 0", .key = "usd", .value = nullptr, .decodes = true},
    {.name = "without id", .key = "id", .value = nullptr, .decodes = false},
    {.name = "without ts", .key = "ts", .value = nullptr, .decodes = false},
    {.name = "without side", .key = "side", .value = nullptr, .decodes = false},
    {.name = "without handle", .key = "handle", .value = nullptr, .decodes = false},
    {.name = "without wallet", .key = "wallet", .value = nullptr, .decodes = false},
    {.name = "without token", .key = "token", .value = nullptr, .decodes = false},
    {.name = "without symbol", .key = "symbol", .value = nullptr, .decodes = false},
    {.name = "id as fraction", .key = "id", .value = "1.5", .decodes = false},
    {.name = "id as string", .key = "id", .value = R"("7")", .decodes = false},
    {.name = "ts as string", .key = "ts", .value = R"("now")", .decodes = false},
    {.name = "flags not strings", .key = "flags", .value = "[1,2]", .decodes = false},
    {.name = "price null is absent", .key = "price", .value = "null", .decodes = true},
    {.name = "price wrong type fails", .key = "price", .value = R"("1.2")", .decodes = false},
    {.name = "unknown keys ignored", .key = "x", .value = R"({"a":[1]})", .decodes = true},
    {.name = "symbol at the longest", .key = "symbol", .value = longest, .decodes = true},
    {.name = "symbol past the longest", .key = "symbol", .value = tooLong, .decodes = false},
    {.name = "usd 1e308", .key = "usd", .value = "1e308", .decodes = false},
    {.name = "usd just over $1T", .key = "usd", .value = "1000000000001", .decodes = false},
    {.name = "usd at $1T", .key = "usd", .value = "1e12", .decodes = true},
    {.name = "usd -1e13", .key = "usd", .value = "-1e13", .decodes = false},
    {.name = "price 1e300", .key = "price", .value = "1e300", .decodes = false},
    {.name = "liquidity 5e12", .key = "liquidity", .value = "5e12", .decodes = false},
    {.name = "mcap $3T (an equity)", .key = "mcap", .value = "3e12", .decodes = true},
    {.name = "mcap 1e300", .key = "mcap", .value = "1e300", .decodes = false},
    // No trade, price or pool is negative.
    {.name = "usd -1", .key = "usd", .value = "-1", .decodes = false},
    {.name = "usd -9e11", .key = "usd", .value = "-9e11", .decodes = false},
    {.name = "usd 0", .key = "usd", .value = "0", .decodes = true},
    {.name = "price -0.5", .key = "price", .value = "-0.5", .decodes = false},
    {.name = "mark -1", .key = "mark", .value = "-1", .decodes = false},
    {.name = "liquidity -3", .key = "liquidity", .value = "-3", .decodes = false},
    {.name = "mcap -1", .key = "mcap", .value = "-1", .decodes = false},
};

// An id beside a good fill: 0, the fill is dropped; -1, the body does not parse.
struct Id { const char *name, *id; qint64 expected; };
const Id ids[] = {
    {.name = "int64 max", .id = "9223372036854775807", .expected = std::numeric_limits<qint64>::max()},
    {.name = "2^53 + 1", .id = "9007199254740993", .expected = Q_INT64_C(9007199254740993)},
    {.name = "a whole number written with a point", .id = "12.0", .expected = 12},
    {.name = "just past int64", .id = "9223372036854775808", .expected = 0},
    {.name = "a double past int64", .id = "1e300", .expected = 0},
    {.name = "beyond a double (no JSON the parser takes)", .id = "1e400", .expected = -1},
};

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
    {.name = "two fills", .decode = fills, .count = 2, .body = '[' + good + ',' + good + ']'},
    {.name = "a fill without a symbol drops only itself", .decode = fills, .count = 1,
     .body = '[' + good + ',' + fillJson("symbol") + ']'},
    {.name = "fill list as an object", .decode = fills, .count = -1, .body = R"({"data":[]})"},
    {.name = "radar without buyers", .decode = radars, .count = 1,
     .body = R"([{"token":"M","symbol":"P","first_ts":1}])"},
    {.name = "radar without first_ts", .decode = radars, .count = -1,
     .body = R"([{"token":"M","symbol":"P"}])"},
    {.name = "radar buyers fraction", .decode = radars, .count = -1,
     .body = R"([{"token":"M","symbol":"P","first_ts":1,"buyers":2.5}])"},
    {.name = "radar usd_in at $1T", .decode = radars, .count = 1,
     .body = R"([{"token":"M","symbol":"P","first_ts":1,"usd_in":1e12}])"},
    {.name = "radar usd_in past $1T", .decode = radars, .count = -1,
     .body = R"([{"token":"M","symbol":"P","first_ts":1,"usd_in":-2e12}])"},
    {.name = "radar usd_in negative", .decode = radars, .count = -1,
     .body = R"([{"token":"M","symbol":"P","first_ts":1,"usd_in":-5}])"},
    {.name = "token volume negative", .decode = tokens, .count = -1,
     .body = R"([{"token":"M","symbol":"P","volume24":-1}])"},
    {.name = "trader losses are signed", .decode = traders, .count = 1,
     .body = R"([{"address":"A","handle":"k","realized_pnl":-5000,"unrealized_pnl":-2}])"},
    {.name = "trader open cost negative", .decode = traders, .count = -1,
     .body = R"([{"address":"A","handle":"k","open_cost":-1}])"},
    {.name = "bag cost negative", .decode = bags, .count = -1,
     .body = R"({"address":"A","handle":"k","bags":[{"symbol":"W","cost_usd":-10}]})"},
    {.name = "token honeypot true", .decode = tokens, .count = 1,
     .body = R"([{"token":"M","symbol":"P","honeypot":true}])"},
    {.name = "token honeypot is strict", .decode = tokens, .count = -1,
     .body = R"([{"token":"M","symbol":"P","honeypot":1}])"},
    {.name = "token pair_url number", .decode = tokens, .count = -1,
     .body = R"([{"token":"M","symbol":"P","pair_url":5}])"},
    {.name = "trader", .decode = traders, .count = 1,
     .body = R"([{"address":"A","handle":"k","win_rate":0.6,"closed_trades":12}])"},
    {.name = "trader handle null", .decode = traders, .count = -1,
     .body = R"([{"address":"A","handle":null}])"},
    {.name = "one bad trader fails the list", .decode = traders, .count = -1,
     .body = R"([{"address":"A","handle":"k"},{"address":"B","handle":"j","wins":"3"}])"},
    {.name = "detail without bags", .decode = bags, .count = 0, .body = R"({"address":"A","handle":"k"})"},
    {.name = "detail with two bags", .decode = bags, .count = 2,
     .body = R"({"address":"A","handle":"k","bags":[{"symbol":"W","cost_usd":10},{"symbol":"M"}]})"},
    {.name = "bag without a symbol", .decode = bags, .count = -1,
     .body = R"({"address":"A","handle":"k","bags":[{"value":3}]})"},
    {.name = "detail bags not a list", .decode = bags, .count = -1,
     .body = R"({"address":"A","handle":"k","bags":{}})"},
    {.name = "detail bags null is empty", .decode = bags, .count = 0,
     .body = R"({"address":"A","handle":"k","bags":null})"},
    {.name = "detail as a list", .decode = bags, .count = -1, .body = R"([{"address":"A","handle":"k"}])"},
};

// A type of nullptr: the frame fails; fills -1: no data.
struct Frame { const char *name; QByteArray bytes; const char *type; int fills; };
const Frame frames[] = {
    {.name = "fills", .bytes = R"({"type":"fills","data":[)" + good + "]}", .type = "fills", .fills = 1},
    {.name = "fills one bad element drops only itself",
     .bytes = R"({"type":"fills","data":[)" + good + ",{}]}", .type = "fills", .fills = 1},
    {.name = "other type ignores data", .bytes = R"({"type":"stats","data":[)" + good + "]}", .type = "stats",
     .fills = -1},
    {.name = "no type", .bytes = R"({"data":[]})", .type = nullptr, .fills = -1},
    {.name = "type not text", .bytes = R"({"type":3})", .type = nullptr, .fills = -1},
    {.name = "not json", .bytes = "hello", .type = nullptr, .fills = -1},
    {.name = "deep nesting", .bytes = QByteArray(100000, '['), .type = nullptr, .fills = -1},
    {.name = "invalid utf-8", .bytes = "{\"type\":\"\xff\xfe\"}", .type = nullptr, .fills = -1},
};

// Wire text cannot reorder its row, split a line or hide characters.
struct Text { const char *name; std::u16string_view sent, kept; };
const Text texts[] = {
    {.name = "plain", .sent = u"WIF", .kept = u"WIF"},
    {.name = "right-to-left override", .sent = u"WIF\u202E000,05$", .kept = u"WIF000,05$"},
    {.name = "every embedding, isolate and mark",
     .sent = u"a\u202Ab\u202Bc\u202Cd\u202De\u2066f\u2067g\u2068h\u2069i\u200Ej\u200Fk\u061Cl",
     .kept = u"abcdefghijkl"},
    {.name = "line breaks become spaces", .sent = u"a\nb\r\nc\u2028d", .kept = u"a b  c d"},
    {.name = "C0 and C1 controls", .sent = std::u16string_view(u"a\0\u0007b\u009Bc\u007F", 7),
     .kept = u"abc"},
    {.name = "right-to-left letters stay", .sent = u"\u05E9\u05DC\u05D5\u05DD",
     .kept = u"\u05E9\u05DC\u05D5\u05DD"},
    {.name = "zero-width joiner and grapheme joiner", .sent = u"Z\u200DW\u034FJ", .kept = u"ZWJ"},
    {.name = "zero-width space, soft hyphen, BOM, word joiner", .sent = u"\u200BW\u00ADI\uFEFFF\u2060",
     .kept = u"WIF"},
    {.name = "tags and variation selectors (outside the BMP too)", .sent = u"W\U000E0041I\uFE0FF\U000E0100",
     .kept = u"WIF"},
    {.name = "Hangul fillers", .sent = u"W\u3164I\u115FF", .kept = u"WIF"},
    {.name = "emoji and CJK stay", .sent = u"\u72D7\U0001F436", .kept = u"\u72D7\U0001F436"},
};

// A symbol that may pass for another one is told apart.
struct Alike { const char *name; std::u16string_view symbol; bool flagged; };
const Alike alikes[] = {
    {.name = "ASCII", .symbol = u"WIF", .flagged = false},
    {.name = "CJK alone", .symbol = u"\u72D7\u72D7", .flagged = false},
    {.name = "Hebrew alone", .symbol = u"\u05E9\u05DC", .flagged = false},
    {.name = "Cyrillic E in PEPE", .symbol = u"P\u0415PE", .flagged = true},
    {.name = "all Cyrillic look-alikes (BOT)", .symbol = u"\u0412\u041E\u0422", .flagged = true},
    {.name = "Greek omicron", .symbol = u"D\u039FG", .flagged = true},
    {.name = "fullwidth", .symbol = u"\uFF37\uFF29\uFF26", .flagged = true},
    {.name = "mathematical bold", .symbol = u"\U0001D416IF", .flagged = true},
    {.name = "Latin and CJK mixed", .symbol = u"DOG\u72D7", .flagged = true},
    {.name = "ligature", .symbol = u"\uFB01SH", .flagged = true},
};
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
