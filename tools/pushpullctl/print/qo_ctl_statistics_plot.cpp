// The statistics as a picture: panels above each other over one time axis, each row drawn over the interval that it
// tells of.
#include <limits.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <iomanip>
#include <sstream>

#include "qo_ctl_output.h"
#include "qo_ctl_statistics_print.h"

namespace {

// ---- measures, in pixels ----

constexpr double kWidth = 1240;
constexpr double kLeft = 76;
constexpr double kRight = 230;  // for the legends
constexpr double kTop = 100;
constexpr double kPanelHeight = 150;
constexpr double kPanelGap = 46;
constexpr double kBottom = 56;  // for the labels of the time axis
constexpr double kPlotWidth = kWidth - kLeft - kRight;
constexpr double kLegendLine = 18;

constexpr int kMostTimeTicks = 9;
constexpr int kMostValueTicks = 5;
constexpr size_t kMostQueues = 6;  // with a line of their own
constexpr size_t kLongestName = 24;

/// Colours that people who do not see all colours can tell apart too.
constexpr std::array<const char*, 7> kColors = {"#0072b2", "#d55e00", "#009e73", "#cc79a7",
                                                "#e69f00", "#56b4e9", "#444444"};

// ---- text ----

[[gnu::format(printf, 1, 2)]] std::string format(const char* pattern, ...) {
    char text[512];
    va_list values;
    va_start(values, pattern);
    const int length = std::vsnprintf(text, sizeof text, pattern, values);
    va_end(values);
    return std::string(text, static_cast<size_t>(std::clamp(length, 0, static_cast<int>(sizeof text) - 1)));
}

std::string escaped(const std::string& text) {
    std::string result;
    for (const char character : text) {
        switch (character) {
            case '&':
                result += "&amp;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            default:
                result += character;
        }
    }
    return result;
}

std::string shortened(const std::string& name) {
    return name.size() <= kLongestName ? name : name.substr(0, kLongestName - 3) + "...";
}

/// A number as short as a label can have it: "0.25", "1500", "20k", "3M".
std::string short_number(double number) {
    if (number >= 1e6) return format("%gM", number / 1e6);
    if (number >= 1e4) return format("%gk", number / 1e3);
    return format("%g", number);
}

std::string host_name() {
    char name[HOST_NAME_MAX + 1] = {};
    gethostname(name, sizeof name - 1);
    return qo_ctl_plain_name(name);
}

// ---- what is drawn ----

struct Point {
    double x;
    double y;
};
/// Without a gap.
using Line = std::vector<Point>;

struct Series {
    std::string name;
    const char* color;
    bool filled;
    std::vector<Line> lines;  // seconds and values, later pixels
};

struct Panel {
    std::string title;
    std::string unit;
    std::vector<Series> series;
    std::vector<std::string> notes;  // below the legend
    bool counts = false;             // whole numbers
};

struct Span {
    double begin;
    double end;
};

/// The rows on the time axis.
class Timeline {
public:
    explicit Timeline(const std::vector<QoCtlStatisticsRow>& rows)
        : rows_(rows),
          knows_intervals_(qo_ctl_usual_interval(rows) > 0),
          usual_s_(std::max(1.0, qo_ctl_usual_interval(rows))) {}

    const std::vector<QoCtlStatisticsRow>& rows() const { return rows_; }
    double usual_interval() const { return usual_s_; }
    double begin() const { return static_cast<double>(rows_.front().time) - interval(rows_.front()); }
    double end() const { return static_cast<double>(rows_.back().time); }

    /// How long the interval was that a row tells of, as far as that is known.
    double interval(const QoCtlStatisticsRow& row) const {
        const bool known = row.interval_s > 0 && !qo_ctl_follows_a_gap(row, usual_s_);
        if (known) return row.interval_s;
        return row.interval_s > 0 ? std::min(row.interval_s, usual_s_) : usual_s_;
    }
    /// `count` per second; nothing when no row tells how long an interval is.
    std::optional<double> rate(const QoCtlStatisticsRow& row, int64_t count) const {
        return knows_intervals_ ? std::optional<double>(static_cast<double>(count) / interval(row)) : std::nullopt;
    }
    bool begins_line(const QoCtlStatisticsRow& row) const {
        return &row == &rows_.front() || qo_ctl_follows_a_gap(row, usual_s_);
    }
    std::vector<Span> gaps() const {
        std::vector<Span> all;
        for (size_t i = 1; i < rows_.size(); ++i) {
            if (rows_[i].interval_s <= interval(rows_[i])) continue;
            const double time = static_cast<double>(rows_[i].time);
            all.push_back({time - rows_[i].interval_s, time - interval(rows_[i])});
        }
        return all;
    }
    std::vector<double> starts() const {
        std::vector<double> all;
        for (const QoCtlStatisticsRow& row : rows_)
            if (row.after_start) all.push_back(static_cast<double>(row.time) - interval(row));
        return all;
    }

    /// A level over each row's interval. `value` gives nothing for rows without one.
    template <typename Value>
    Series series(const std::string& name, const char* color, Value value) const {
        Series result{name, color, false, {}};
        bool open = false;
        for (const QoCtlStatisticsRow& row : rows_) {
            const std::optional<double> level = value(row);
            if (!level || begins_line(row)) open = false;
            if (!level) continue;
            if (!open) result.lines.emplace_back();
            open = true;
            const double time = static_cast<double>(row.time);
            result.lines.back().push_back({time - interval(row), *level});
            result.lines.back().push_back({time, *level});
        }
        return result;
    }

private:
    const std::vector<QoCtlStatisticsRow>& rows_;
    bool knows_intervals_;
    double usual_s_;
};

// ---- axes ----

/// A step of 1, 2 or 5 times a power of ten that divides 0 to `largest` in few parts.
double value_step(double largest) {
    double step = std::pow(10.0, std::floor(std::log10(largest / kMostValueTicks)));
    for (const double factor : {2.0, 2.5, 2.0}) {
        if (largest / step <= kMostValueTicks) break;
        step *= factor;
    }
    return step;
}

struct ValueAxis {
    double step;
    double top;
};

ValueAxis value_axis(const Panel& panel) {
    double largest = 0;
    for (const Series& series : panel.series) {
        for (const Line& line : series.lines)
            for (const Point& point : line) largest = std::max(largest, point.y);
    }
    if (largest <= 0) return {1, 1};
    const double step = std::max(value_step(largest), panel.counts ? 1.0 : 0.0);
    return {step, std::ceil(largest / step - 1e-9) * step};
}

double time_step(double seconds) {
    for (const double step : {1.,    2.,    5.,    10.,    15.,    30.,    60.,    120.,    300.,    600.,    900.,
                              1800., 3600., 7200., 10800., 21600., 43200., 86400., 172800., 604800., 1209600.})
        if (seconds / step <= kMostTimeTicks) return step;
    constexpr double kMonth = 2592000;
    return std::ceil(seconds / kMostTimeTicks / kMonth) * kMonth;
}

std::string time_label(double time, const char* pattern) {
    const auto whole = static_cast<time_t>(time);
    tm broken_down{};
    gmtime_r(&whole, &broken_down);
    std::ostringstream text;
    text << std::put_time(&broken_down, pattern);
    return text.str();
}

// ---- drawing ----

/// Keeps of all points within one pixel column the first, the least, the greatest and the last.
Line thinned(const Line& line) {
    Line result;
    for (size_t begin = 0; begin < line.size();) {
        size_t end = begin;
        while (end < line.size() && std::floor(line[end].x) == std::floor(line[begin].x)) ++end;
        const auto first = line.begin() + static_cast<std::ptrdiff_t>(begin);
        const auto last = line.begin() + static_cast<std::ptrdiff_t>(end);
        if (end - begin <= 4) {
            result.insert(result.end(), first, last);
        } else {
            auto [least, greatest] =
                std::minmax_element(first, last, [](const Point& a, const Point& b) { return a.y < b.y; });
            if (greatest < least) std::swap(least, greatest);
            result.insert(result.end(), {*first, *least, *greatest, *(last - 1)});
        }
        begin = end;
    }
    return result;
}

class Picture {
public:
    Picture(const Timeline& timeline, size_t panels)
        : timeline_(timeline),
          height_(kTop + static_cast<double>(panels) * (kPanelHeight + kPanelGap) - kPanelGap + kBottom) {
        svg_ = format(
            "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%.0f\" height=\"%.0f\" viewBox=\"0 0 %.0f %.0f\" "
            "font-family=\"sans-serif\" font-size=\"12\" fill=\"#222\">\n<rect width=\"100%%\" height=\"100%%\" "
            "fill=\"white\"/>\n",
            kWidth, height_, kWidth, height_);
    }

    void title() {
        const auto& rows = timeline_.rows();
        text(kLeft, 34, "Statistics of qo_pushpull on " + host_name(), "font-size=\"20\" font-weight=\"bold\"");
        text(kLeft, 56,
             time_label(timeline_.begin(), "%Y-%m-%d %H:%M:%S") + " to " +
                 time_label(timeline_.end(), "%Y-%m-%d %H:%M:%S UTC") + ", " +
                 qo_ctl_count(static_cast<long>(rows.size()), "row") +
                 (rows.size() > 1 ? format(", one every %g s", timeline_.usual_interval()) : ""),
             "fill=\"#555\" font-size=\"13\"");
        double x = kWidth - kRight + 16;
        if (!timeline_.gaps().empty()) {
            svg_ += format("<rect x=\"%.1f\" y=\"46\" width=\"14\" height=\"12\" fill=\"#e6e6e6\"/>\n", x);
            text(x + 20, 56, "no rows", "");
            x += 86;
        }
        if (!timeline_.starts().empty()) {
            svg_ += format("<path d=\"M%.1f 45V59\" stroke=\"#888\" stroke-dasharray=\"4 3\"/>\n", x);
            text(x + 8, 56, "service start", "");
        }
    }

    void panel(Panel panel) {
        const double top = kTop + static_cast<double>(drawn_) * (kPanelHeight + kPanelGap);
        const ValueAxis axis = value_axis(panel);
        text(kLeft, top - 8, panel.title, "font-size=\"14\" font-weight=\"bold\"");
        text(kLeft + kPlotWidth, top - 8, panel.unit, "fill=\"#555\" text-anchor=\"end\"");
        draw_gaps(top);
        draw_value_axis(top, axis);
        draw_time_ticks(top, false);
        // The first one last, so that it lies on top.
        for (auto series = panel.series.rbegin(); series != panel.series.rend(); ++series) draw(*series, top, axis);
        draw_starts(top);
        svg_ += format("<path d=\"M%.1f %.1fV%.1fH%.1f\" fill=\"none\" stroke=\"#222\" stroke-width=\"1\"/>\n", kLeft,
                       top, top + kPanelHeight, kLeft + kPlotWidth);
        draw_legend(panel, top);
        ++drawn_;
    }

    std::string finish() {
        draw_time_ticks(height_ - kBottom - kPanelHeight, true);
        return svg_ + "</svg>\n";
    }

private:
    double x_of(double time) const {
        return kLeft + (time - timeline_.begin()) / (timeline_.end() - timeline_.begin()) * kPlotWidth;
    }

    void text(double x, double y, const std::string& words, const std::string& attributes) {
        svg_ += format("<text x=\"%.1f\" y=\"%.1f\" ", x, y) + attributes + ">" + escaped(words) + "</text>\n";
    }

    void draw_gaps(double top) {
        for (const Span& gap : timeline_.gaps()) {
            svg_ += format("<rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\" fill=\"#e6e6e6\"/>\n",
                           x_of(gap.begin), top, std::max(1.0, x_of(gap.end) - x_of(gap.begin)), kPanelHeight);
        }
    }

    void draw_starts(double top) {
        for (const double start : timeline_.starts()) {
            svg_ += format("<path d=\"M%.1f %.1fv%.1f\" stroke=\"#888\" stroke-dasharray=\"4 3\"/>\n", x_of(start), top,
                           kPanelHeight);
        }
    }

    void draw_value_axis(double top, const ValueAxis& axis) {
        for (int tick = 0; tick * axis.step <= axis.top * (1 + 1e-9); ++tick) {
            const double y = top + kPanelHeight * (1 - tick * axis.step / axis.top);
            svg_ += format("<path d=\"M%.1f %.1fh%.1f\" stroke=\"#ddd\"/>\n", kLeft, y, kPlotWidth);
            text(kLeft - 8, y + 4, short_number(tick * axis.step), "text-anchor=\"end\" fill=\"#444\"");
        }
    }

    void draw_time_ticks(double top, bool labelled) {
        const double step = time_step(timeline_.end() - timeline_.begin());
        constexpr double kDay = 86400;
        const char* pattern = step >= kDay ? "" : step >= 60 ? "%H:%M" : "%H:%M:%S";
        std::string last_date;
        const auto first = static_cast<int64_t>(std::ceil(timeline_.begin() / step));
        const auto last = static_cast<int64_t>(std::floor(timeline_.end() / step));
        for (int64_t tick = first; tick <= last; ++tick) {
            const double time = static_cast<double>(tick) * step;
            const double x = x_of(time);
            if (!labelled) {
                svg_ += format("<path d=\"M%.1f %.1fv%.1f\" stroke=\"#eee\"/>\n", x, top, kPanelHeight);
                continue;
            }
            const double bottom = top + kPanelHeight;
            const std::string date = time_label(time, "%b %d");
            svg_ += format("<path d=\"M%.1f %.1fv5\" stroke=\"#222\"/>\n", x, bottom);
            if (*pattern != '\0') text(x, bottom + 19, time_label(time, pattern), "text-anchor=\"middle\"");
            if (date != last_date)
                text(x, bottom + (*pattern != '\0' ? 36 : 19), date, "text-anchor=\"middle\" font-weight=\"bold\"");
            last_date = date;
        }
        if (labelled) text(kLeft + kPlotWidth + 40, top + kPanelHeight + 19, "time, UTC", "fill=\"#555\"");
    }

    void draw(Series& series, double top, const ValueAxis& axis) {
        std::string lines;
        std::string areas;
        for (Line& line : series.lines) {
            for (Point& point : line) point = {x_of(point.x), top + kPanelHeight * (1 - point.y / axis.top)};
            const Line thin = thinned(line);
            std::string path;
            for (const Point& point : thin) path += format("%c%.1f %.1f", path.empty() ? 'M' : 'L', point.x, point.y);
            lines += path;
            areas += path + format("V%.1fH%.1fZ", top + kPanelHeight, thin.front().x);
        }
        if (lines.empty()) return;
        if (series.filled) svg_ += "<path d=\"" + areas + "\" fill=\"" + series.color + "\" fill-opacity=\"0.18\"/>\n";
        svg_ += "<path d=\"" + lines + "\" fill=\"none\" stroke=\"" + series.color +
                "\" stroke-width=\"1.4\" stroke-linejoin=\"round\"/>\n";
    }

    void draw_legend(const Panel& panel, double top) {
        const double x = kLeft + kPlotWidth + 16;
        double y = top + 6;
        for (const Series& series : panel.series) {
            svg_ += format("<path d=\"M%.1f %.1fh20\" stroke=\"%s\" stroke-width=\"3\"/>\n", x, y, series.color);
            text(x + 27, y + 4, series.name, "");
            y += kLegendLine;
        }
        for (const std::string& note : panel.notes) {
            text(x, y + 4, note, "fill=\"#555\"");
            y += kLegendLine;
        }
    }

    const Timeline& timeline_;
    double height_;
    size_t drawn_ = 0;
    std::string svg_;
};

// ---- the panels ----

Panel activity_panel(const Timeline& timeline) {
    Series busy = timeline.series("busy", kColors[0],
                                  [](const auto& row) -> std::optional<double> { return row.percent_active; });
    busy.filled = true;
    return {"Activity", "percent of the time", {std::move(busy)}, {}};
}

Panel rate_panel(const Timeline& timeline) {
    const auto rate = [&timeline](int64_t QoCtlStatisticsRow::*count) {
        return [&timeline, count](const QoCtlStatisticsRow& row) -> std::optional<double> {
            return timeline.rate(row, row.*count);
        };
    };
    return {"Publishes and reads",
            "per second",
            {timeline.series("publishes", kColors[0], rate(&QoCtlStatisticsRow::publishes)),
             timeline.series("reads", kColors[1], rate(&QoCtlStatisticsRow::reads)),
             timeline.series("saves", kColors[2], rate(&QoCtlStatisticsRow::saves))},
            {}};
}

Panel duration_panel(const Timeline& timeline) {
    return {
        "Time each took",
        "milliseconds, mean",
        {timeline.series(
             "publish", kColors[0],
             [](const auto& row) { return row.publishes > 0 ? std::optional<double>(row.publish_ms) : std::nullopt; }),
         timeline.series(
             "read", kColors[1], [](const auto& row) { return row.reads > 0 ? row.read_ms : std::nullopt; })},
        {}};
}

const QoCtlQueueSample* find_queue(const QoCtlStatisticsRow& row, const std::string& name) {
    const auto queue =
        std::find_if(row.queues.begin(), row.queues.end(), [&](const auto& sample) { return sample.name == name; });
    return queue == row.queues.end() ? nullptr : &*queue;
}

/// The service's own queue, which comes first in every row, and then those with the greatest depths, with the most
/// messages first among equals.
std::vector<std::string> deepest_queues(const std::vector<QoCtlStatisticsRow>& rows) {
    const auto totals = qo_ctl_queue_totals(rows);
    std::vector<std::string> names;
    names.reserve(totals.size());
    for (const auto& [name, total] : totals) names.push_back(name);
    const std::string service = rows.back().queues.empty() ? "" : rows.back().queues.front().name;
    std::stable_sort(names.begin(), names.end(), [&](const auto& a, const auto& b) {
        if (a == service || b == service) return a == service && b != service;
        const QoCtlQueueTotal& first = totals.at(a);
        const QoCtlQueueTotal& second = totals.at(b);
        return first.max_depth != second.max_depth ? first.max_depth > second.max_depth
                                                   : first.messages > second.messages;
    });
    return names;
}

Panel depth_panel(const Timeline& timeline, const std::string& title, double QoCtlQueueSample::*average,
                  int64_t QoCtlQueueSample::*count, const std::string& unit, bool rate) {
    Panel panel{title, unit, {}, {}, average == nullptr && !rate};
    const std::vector<std::string> names = deepest_queues(timeline.rows());
    const auto totals = qo_ctl_queue_totals(timeline.rows());
    for (size_t i = 0; i < std::min(names.size(), kMostQueues); ++i) {
        const std::string& name = names[i];
        panel.series.push_back(timeline.series(qo_ctl_shown_name(shortened(name), totals.at(name).certain), kColors[i],
                                               [&, average, count, rate](const auto& row) -> std::optional<double> {
                                                   const QoCtlQueueSample* queue = find_queue(row, name);
                                                   if (queue == nullptr) return std::nullopt;
                                                   if (average != nullptr) return queue->*average;
                                                   return rate ? timeline.rate(row, queue->*count)
                                                               : static_cast<double>(queue->*count);
                                               }));
    }
    if (names.size() > kMostQueues) panel.notes.push_back(format("and %zu more", names.size() - kMostQueues));
    if (names.empty()) panel.notes.emplace_back("no queues");
    if (std::any_of(totals.begin(), totals.end(), [](const auto& total) { return !total.second.certain; }))
        panel.notes.emplace_back("? may be another's");
    return panel;
}

}  // namespace

std::string qo_ctl_statistics_plot(const std::vector<QoCtlStatisticsRow>& rows) {
    const Timeline timeline(rows);
    const Panel panels[] = {
        activity_panel(timeline),
        rate_panel(timeline),
        duration_panel(timeline),
        depth_panel(timeline, "Greatest depth of each queue", nullptr, &QoCtlQueueSample::max_depth, "messages", false),
        depth_panel(timeline, "Average depth of each queue", &QoCtlQueueSample::avg_depth, nullptr, "messages", false),
        depth_panel(timeline, "Messages through each queue", nullptr, &QoCtlQueueSample::messages, "per second", true)};
    Picture picture(timeline, std::size(panels));
    picture.title();
    for (const Panel& panel : panels) picture.panel(panel);
    return picture.finish();
}
