#include "CTLHistoryPage.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <map>
#include <string_view>
#include <vector>

#include "CTLRecord.h"
#include "CTLText.h"

namespace {

using Kind = CTLEvent::Kind;

constexpr int kWidth = 1000;
constexpr int kLeft = 150;  // for names
constexpr int kRight = 16;
constexpr int kRow = 34;
constexpr int kAxis = 30;
constexpr int kPlot = 150;
constexpr int kPlotLeft = 50;
constexpr int kBuckets = 96;
constexpr std::size_t kMostListed = 500;
constexpr std::size_t kMostRows = 100;  // of the timeline
constexpr std::size_t kMostTitle = 200;

constexpr std::string_view kStyle = R"(
:root { color-scheme: light dark; --ground: #ffffff; --text: #1d2433; --faint: #68707f; --line: #d8dce3;
  --panel: #f5f6f8; --good: #2e8b57; --restart: #c77700; --failed: #c8322d; --killed: #7b2fa8; --time: #2b6cb0; }
@media (prefers-color-scheme: dark) {
  :root { --ground: #14171c; --text: #e4e7ec; --faint: #98a1b0; --line: #343b46; --panel: #1c2027;
    --good: #4fc387; --restart: #f0a53a; --failed: #ff6b63; --killed: #c58af0; --time: #6cb2f5; } }
body { margin: 0 auto; max-width: 70rem; padding: 1.5rem; background: var(--ground); color: var(--text);
  font: 15px/1.5 system-ui, sans-serif; }
h1 { font-size: 1.4rem; margin: 0 0 .2rem; overflow-wrap: anywhere; } h2 { font-size: 1.05rem; margin: 2rem 0 .5rem; }
p { margin: .3rem 0; } .faint { color: var(--faint); } .scroll { overflow-x: auto; }
table { border-collapse: collapse; width: 100%; font-variant-numeric: tabular-nums; }
th, td { text-align: left; font-size: .9rem; padding: .35rem .45rem; border-bottom: 1px solid var(--line); white-space: nowrap; }
td.long { white-space: normal; overflow-wrap: anywhere; }
th { color: var(--faint); font-weight: 600; } .number { text-align: right; }
svg { display: block; width: 100%; min-width: 40rem; height: auto; background: var(--panel); border-radius: 6px; }
svg text { fill: var(--text); font: 13px system-ui, sans-serif; } svg .faint { fill: var(--faint); }
.grid { stroke: var(--line); } .good { fill: var(--good); } .restart { fill: var(--restart); }
.failed { fill: var(--failed); } .killed { fill: var(--killed); } .time { fill: var(--time); } .track { fill: var(--line); }
.key { display: inline-block; width: .75em; height: .75em; border-radius: 2px; margin: 0 .35em 0 1em; }
.key.good { background: var(--good); } .key.restart { background: var(--restart); }
.key.failed { background: var(--failed); } .key.killed { background: var(--killed); }
details { margin-top: 2rem; } summary { cursor: pointer; font-weight: 600; }
)";

std::string number(double value) {
    // Drawings need no more than tenths.
    const auto tenths = static_cast<std::int64_t>(std::llround(value * 10));
    const std::string digits = std::to_string(tenths / 10);
    return tenths % 10 == 0 ? digits : digits + "." + std::to_string(tenths % 10);
}

std::string attribute(const char* name, double value) {
    return std::string(" ") + name + "=\"" + number(value) + "\"";
}

std::string rectangle(const char* kind, double x, double y, double width, double height,
                      const std::string& title) {
    return std::string("<rect class=\"") + kind + "\"" + attribute("x", x) + attribute("y", y) +
           attribute("width", std::max(width, 2.0)) + attribute("height", height) + " rx=\"1\"><title>" +
           CTLHistoryPage::escaped(title) + "</title></rect>\n";
}

std::string label(double x, double y, const char* anchor, const char* kind, const std::string& text) {
    return "<text" + attribute("x", x) + attribute("y", y) + " text-anchor=\"" + anchor + "\" class=\"" +
           kind + "\">" + CTLHistoryPage::escaped(text) + "</text>\n";
}

std::string line(double x1, double y1, double x2, double y2) {
    return "<line class=\"grid\"" + attribute("x1", x1) + attribute("y1", y1) + attribute("x2", x2) +
           attribute("y2", y2) + "/>\n";
}

std::string drawing(int height, const std::string& what, const std::string& content) {
    return "<div class=\"scroll\"><svg viewBox=\"0 0 " + std::to_string(kWidth) + " " +
           std::to_string(height) + "\" role=\"img\" aria-label=\"" + CTLHistoryPage::escaped(what) +
           "\">\n" + content + "</svg></div>\n";
}

// Where a moment lies, from left to right.
class Axis {
  public:
    Axis(std::time_t from, std::time_t until, int left)
        : m_from(from), m_span(std::max<std::time_t>(until - from, 60)), m_left(left) {}

    double at(std::time_t time) const {
        const double part = static_cast<double>(std::clamp<std::time_t>(time - m_from, 0, m_span)) /
                            static_cast<double>(m_span);
        return m_left + part * (kWidth - kRight - m_left);
    }
    std::size_t bucketOf(std::time_t time) const {
        const auto past = static_cast<std::int64_t>(std::clamp<std::time_t>(time - m_from, 0, m_span));
        return static_cast<std::size_t>(std::min<std::int64_t>(past * kBuckets / m_span, kBuckets - 1));
    }
    double bucketLeft(std::size_t bucket) const {
        return m_left + static_cast<double>(bucket) * bucketWidth();
    }
    double bucketWidth() const { return static_cast<double>(kWidth - kRight - m_left) / kBuckets; }

    // Lines and times, at most eight.
    std::string drawn(double top, double bottom) const {
        const std::time_t step = stepSec();
        std::string marks;
        for (std::time_t time = firstMark(step); time <= m_from + m_span; time += step) {
            marks += line(at(time), top, at(time), bottom);
            const bool isAtEdge = at(time) > kWidth - kRight - 30;
            marks += label(at(time), bottom + 18, isAtEdge ? "end" : "middle", "faint", nameOf(time));
        }
        return marks;
    }

  private:
    std::time_t stepSec() const {
        static constexpr std::array<std::time_t, 15> steps{10,     60,     300,     900,     1800,
                                                           3600,   10800,  21600,   43200,   86400,
                                                           172800, 604800, 1209600, 2592000, 7776000};
        for (const std::time_t step : steps) {
            if (m_span / step < 8) return step;
        }
        return std::max<std::time_t>(m_span / 7, 1);
    }
    // On a full step of the reader's clock.
    std::time_t firstMark(std::time_t step) const {
        std::tm local{};
        localtime_r(&m_from, &local);
        const std::time_t offset = local.tm_gmtoff;
        return (m_from + offset + step - 1) / step * step - offset;
    }
    std::string nameOf(std::time_t time) const {
        const std::string text = CTLText::localTime(time);  // "2026-11-21 23:13:06"
        if (m_span <= 600) return text.substr(11);
        if (m_span <= 86400) return text.substr(11, 5);
        return stepSec() < 86400 ? text.substr(5, 11) : text.substr(5, 5);
    }

    std::time_t m_from;
    std::time_t m_span;
    int m_left;
};

// What is drawn for an event, and how high in its row; null: nothing.
struct Mark {
    const char* kind;
    double top;
    double height;
};
const Mark* markOf(Kind kind) {
    static constexpr Mark failed{"failed", 22, 9};
    static constexpr Mark restart{"restart", 12, 9};
    static constexpr Mark killed{"killed", 2, 9};
    if (kind == Kind::PingFailed) return &failed;
    if (kind == Kind::Restarted) return &restart;
    return kind == Kind::Killed ? &killed : nullptr;
}

// Events of a kind that fall into one place of a row are one mark, so that a drawing does not grow with the log.
struct Heap {
    std::time_t first = 0;
    std::time_t last = 0;
    int count = 0;
    std::string text;
};

std::string titleOf(const Heap& heap, Kind kind) {
    std::string title = CTLText::localTime(heap.first) + ": " + CTLEvent::word(kind);
    if (heap.count > 1)
        title += ", " + std::to_string(heap.count) + " times until " + CTLText::localTime(heap.last);
    return title + "\n" + heap.text.substr(0, kMostTitle);
}

std::string marksOf(const CTLRecord& record, const std::string& child, const Axis& axis, double top) {
    std::map<std::pair<int, Kind>, Heap> heaps;
    for (const CTLEvent& event : record.events) {
        if (event.child != child || markOf(event.kind) == nullptr) continue;
        Heap& heap = heaps[{static_cast<int>(axis.at(event.time)) / 3, event.kind}];
        if (heap.count++ == 0) heap = {event.time, event.time, 1, event.text};
        heap.last = event.time;
    }
    std::string marks;
    for (const auto& [place, heap] : heaps) {
        const Mark& mark = *markOf(place.second);
        marks += rectangle(mark.kind, axis.at(heap.first) - 1, top + mark.top, 3, mark.height,
                           titleOf(heap, place.second));
    }
    return marks;
}

std::string shortened(const std::string& name) {
    // In letters, not bytes: a name may be written in any script.
    std::string text;
    std::size_t letters = 0;
    for (const char c : CTLText::printable(name)) {
        const bool begins = (static_cast<unsigned char>(c) & 0xC0U) != 0x80;
        if (begins && ++letters > 18) return text + "…";
        text += c;
    }
    return text;
}

std::string nameOf(const CTLChildRecord& child) {
    return child.name.empty() ? "not named" : child.name;
}

std::string serviceRow(const CTLRecord& record, const Axis& axis) {
    std::string row = label(kLeft - 14, 22, "end", "name", "the service");
    row += rectangle("track", kLeft, 15, kWidth - kLeft - kRight, 4, "");
    for (const CTLRun& run : record.runs) {
        const std::string until =
            run.isOpen ? "its end is not in the log" : "until " + CTLText::localTime(run.until);
        row += rectangle("good", axis.at(run.from), 9, axis.at(run.until) - axis.at(run.from), 16,
                         "ran from " + CTLText::localTime(run.from) + ", " + until);
    }
    return row;
}

std::string timeline(const CTLRecord& record) {
    const Axis axis(record.from, record.until, kLeft);
    const std::size_t rows = std::min(record.children.size(), kMostRows);
    const double bottom = kRow * (static_cast<double>(rows) + 1) + 4;
    std::string content = axis.drawn(4, bottom) + serviceRow(record, axis);
    for (std::size_t row = 0; row < rows; ++row) {
        const double top = kRow * (static_cast<double>(row) + 1);
        const CTLChildRecord& child = record.children[row];
        content += label(kLeft - 14, top + 22, "end", "name", shortened(nameOf(child)));
        content += rectangle("track", kLeft, top + 15, kWidth - kLeft - kRight, 4, nameOf(child));
        content += marksOf(record, child.name, axis, top);
    }
    return drawing(static_cast<int>(bottom) + kAxis, "Timeline of the service and its children", content);
}

// Lines at the height of nothing, half and all.
std::string scale(double most, const std::string& unit) {
    std::string marks;
    for (const double part : {0.0, 0.5, 1.0}) {
        const double y = 14 + (1 - part) * kPlot;
        marks += line(kPlotLeft, y, kWidth - kRight, y);
        marks += label(kPlotLeft - 8, y + 4, "end", "faint", number(most * part) + unit);
    }
    return marks;
}

std::string failures(const CTLRecord& record) {
    const Axis axis(record.from, record.until, kPlotLeft);
    std::array<int, kBuckets> failed{};
    std::array<int, kBuckets> restarts{};
    int most = 2;
    for (const CTLEvent& event : record.events) {
        const std::size_t bucket = axis.bucketOf(event.time);
        if (event.kind == Kind::PingFailed) ++failed[bucket];
        if (event.kind == Kind::Restarted) ++restarts[bucket];
        most = std::max(most, failed[bucket] + restarts[bucket]);
    }
    most += most % 2;  // half of it is a number of them, too
    std::string content = axis.drawn(14, 14 + kPlot) + scale(most, "");
    for (std::size_t bucket = 0; bucket < kBuckets; ++bucket) {
        const double high = kPlot * static_cast<double>(failed[bucket]) / most;
        const double higher = kPlot * static_cast<double>(restarts[bucket]) / most;
        const double x = axis.bucketLeft(bucket) + 1;
        const double width = axis.bucketWidth() - 2;
        if (failed[bucket] > 0)
            content += rectangle("failed", x, 14 + kPlot - high, width, high,
                                 std::to_string(failed[bucket]) + " failed pings");
        if (restarts[bucket] > 0)
            content += rectangle("restart", x, 14 + kPlot - high - higher, width, higher,
                                 std::to_string(restarts[bucket]) + " restarts");
    }
    return drawing(14 + kPlot + kAxis, "Failed pings and restarts", content);
}

std::string pingTimes(const CTLRecord& record, const std::string& child) {
    const Axis axis(record.from, record.until, kPlotLeft);
    std::array<int, kBuckets> longest{};
    longest.fill(-1);
    int most = 2;
    for (const CTLEvent& event : record.events) {
        if (event.child != child || !event.seconds) continue;
        int& slot = longest[axis.bucketOf(event.time)];
        slot = std::max(slot, *event.seconds);
        most = std::max(most, slot);
    }
    std::string content = axis.drawn(14, 14 + kPlot) + scale(most, " s");
    for (std::size_t bucket = 0; bucket < kBuckets; ++bucket) {
        if (longest[bucket] < 0) continue;
        // A ping that took no time that the log could tell is still to be seen.
        const double high = std::max(kPlot * static_cast<double>(longest[bucket]) / most, 3.0);
        content += rectangle("time", axis.bucketLeft(bucket) + 1, 14 + kPlot - high, axis.bucketWidth() - 2,
                             high, "at most " + std::to_string(longest[bucket]) + " s");
    }
    return drawing(14 + kPlot + kAxis, "How long pings took", content);
}

std::string allPingTimes(const CTLRecord& record) {
    if (!record.hasAnswerTimes)
        return "<p class=\"faint\">The log does not tell: the service logs good pings at level DEBUG "
               "only.</p>\n";
    std::string all =
        "<p class=\"faint\">The longest of each moment, from connecting to the answer. The log tells whole "
        "seconds.</p>\n";
    std::size_t shown = 0;
    for (const CTLChildRecord& child : record.children) {
        if (child.answeredPings == 0 || ++shown > kMostRows) continue;
        all += "<p>" + CTLHistoryPage::escaped(nameOf(child)) + "</p>\n" + pingTimes(record, child.name);
    }
    return all;
}

std::string cell(const std::string& text, const char* kind = "number") {
    return std::string("<td class=\"") + kind + "\">" + CTLHistoryPage::escaped(text) + "</td>";
}

std::string timeCell(const std::optional<std::time_t>& time) {
    return cell(time ? CTLText::localTime(*time) : "–", "name");
}

std::string table(const CTLRecord& record) {
    std::string rows =
        "<div class=\"scroll\"><table><thead><tr><th>child</th><th class=\"number\">restarts</th><th "
        "class=\"number\">"
        "died</th><th class=\"number\">killed</th><th class=\"number\">failed pings</th><th "
        "class=\"number\">mean ping"
        "</th><th class=\"number\">longest ping</th><th>last restart</th><th>last failed "
        "ping</th></tr></thead><tbody>\n";
    for (const CTLChildRecord& child : record.children) {
        rows += "<tr>" + cell(nameOf(child), "name") + cell(std::to_string(child.restarts)) +
                cell(std::to_string(child.deaths)) + cell(std::to_string(child.killed)) +
                cell(std::to_string(child.failedPings)) +
                cell(child.meanSec ? number(*child.meanSec) + " s" : "–") +
                cell(child.longestSec ? std::to_string(*child.longestSec) + " s" : "–") +
                timeCell(child.lastRestart) + timeCell(child.lastFailedPing) + "</tr>\n";
    }
    return rows + "</tbody></table></div>\n";
}

std::string list(const CTLRecord& record) {
    std::string rows;
    std::size_t listed = 0;
    for (auto event = record.events.rbegin(); event != record.events.rend() && listed < kMostListed;
         ++event) {
        if (event->kind == Kind::PingAnswered) continue;
        ++listed;
        rows += "<tr>" + cell(CTLText::localTime(event->time), "name") + cell(event->child, "name") +
                cell(CTLEvent::word(event->kind), "name") + cell(event->text, "long") + "</tr>\n";
    }
    return "<details><summary>The last " + std::to_string(listed) +
           " events</summary><div "
           "class=\"scroll\"><table><thead><tr><th>time</th><th>child</th><th>what</th><th>the "
           "log's words</th></tr></thead><tbody>\n" +
           rows + "</tbody></table></div></details>\n";
}

}  // namespace

namespace CTLHistoryPage {

std::string escaped(const std::string& text) {
    std::string safe;
    for (const char c : text) {
        switch (c) {
            case '&':
                safe += "&amp;";
                break;
            case '<':
                safe += "&lt;";
                break;
            case '>':
                safe += "&gt;";
                break;
            case '"':
                safe += "&quot;";
                break;
            case '\'':
                safe += "&#39;";
                break;
            default:
                safe += c;
        }
    }
    // A line feed is one in a title; everything else that is no text is none here.
    return safe.find('\n') == std::string::npos ? CTLText::printable(safe)
                                                : CTLText::printable(safe.substr(0, safe.find('\n'))) + "\n" +
                                                      CTLText::printable(safe.substr(safe.find('\n') + 1));
}

std::string of(const CTLRecord& record, const std::string& title, bool isComplete) {
    const std::string name = escaped(title);
    std::string page =
        "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"/>\n"
        "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src "
        "'unsafe-inline'\"/>\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>\n<title>History of " +
        name + "</title>\n<style>" + std::string(kStyle) + "</style></head><body>\n<h1>History of " + name +
        "</h1>\n<p class=\"faint\">" + CTLText::localTime(record.from) + " to " +
        CTLText::localTime(record.until) + ", local time" +
        (isComplete ? "" : "; the log is longer than what was read of it") + "</p>\n";
    page += table(record);
    page += "<h2>Timeline</h2>\n" + timeline(record) +
            "<p class=\"faint\"><span class=\"key good\"></span>the service runs<span class=\"key "
            "restart\"></span>restart"
            "<span class=\"key failed\"></span>failed ping<span class=\"key killed\"></span>killed</p>\n";
    page += "<h2>Failed pings and restarts</h2>\n" + failures(record);
    page += "<h2>How long pings took</h2>\n" + allPingTimes(record) + list(record);
    return page + "</body></html>\n";
}

}  // namespace CTLHistoryPage
