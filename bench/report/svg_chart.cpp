// Charts of bars and of lines.
#include "svg_chart.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iomanip>
#include <sstream>

namespace {

// Sizes in the chart's own units, which are pixels where it is not scaled.
constexpr double kPanelWidth = 440;
constexpr double kMargin = 16;
constexpr double kTitle = 24;
constexpr double kBarStep = 20;
constexpr double kBarHeight = 14;
constexpr double kBarStart = 150;    // room for labels
constexpr double kLongestBar = 210;  // leaves room for the value
constexpr double kPlotWidth = 270;
constexpr double kPlotHeight = 160;
constexpr double kPlotStart = 56;
constexpr double kTextDrop = 11;  // from the top of a line to its base
constexpr size_t kColumns = 2;
constexpr double kRoundingError = 1e-9;  // of a logarithm

// Told apart by those who see few colours, on white and on black.
constexpr std::array<const char*, 4> kLineColours = {"#0072b2", "#d55e00", "#009e73", "#cc79a7"};

constexpr char kStyle[] =
    "<style>\n"
    "text{font:12px sans-serif;fill:#24292f}.title{font-weight:bold}.end{text-anchor:end}.middle{text-anchor:middle}\n"
    ".bar{fill:#8c959f}.ours{fill:#0969da}.axis{stroke:#8c959f;stroke-width:1}.line{fill:none;stroke-width:2}\n"
    "@media (prefers-color-scheme:dark){text{fill:#e6edf3}.bar{fill:#6e7681}.ours{fill:#58a6ff}}\n"
    "</style>\n";

std::string escaped(const std::string& text) {
    std::string result;
    for (const char character : text)
        if (character == '<')
            result += "&lt;";
        else if (character == '&')
            result += "&amp;";
        else
            result += character;
    return result;
}

std::string short_number(double value) {
    std::ostringstream text;
    text << std::setprecision(3);
    if (value >= 999.5e3)
        text << value / 1e6 << " M";
    else if (value >= 999.5)
        text << value / 1e3 << " k";
    else
        text << value;
    return text.str();
}

class Drawing {
public:
    Drawing(double width, double height) {
        svg_ << R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 )" << width << ' ' << height << "\" width=\""
             << width << "\" height=\"" << height << "\">\n"
             << kStyle;
    }
    void text(double x, double y, const std::string& text, const char* style = "") {
        svg_ << "<text x=\"" << x << "\" y=\"" << y << "\" class=\"" << style << "\">" << escaped(text) << "</text>\n";
    }
    void bar(double x, double y, double width, bool stands_out) {
        svg_ << "<rect x=\"" << x << "\" y=\"" << y << "\" width=\"" << width << "\" height=\"" << kBarHeight
             << "\" rx=\"2\" class=\"" << (stands_out ? "ours" : "bar") << "\"/>\n";
    }
    void axis(double x1, double y1, double x2, double y2) {
        svg_ << "<line x1=\"" << x1 << "\" y1=\"" << y1 << "\" x2=\"" << x2 << "\" y2=\"" << y2
             << "\" class=\"axis\"/>\n";
    }
    void line(const std::vector<std::pair<double, double>>& points, const char* colour) {
        svg_ << "<polyline class=\"line\" stroke=\"" << colour << "\" points=\"";
        for (const auto& [x, y] : points) svg_ << x << ',' << y << ' ';
        svg_ << "\"/>\n";
        for (const auto& [x, y] : points)
            svg_ << "<circle cx=\"" << x << "\" cy=\"" << y << "\" r=\"3\" fill=\"" << colour << "\"/>\n";
    }
    std::string finish() {
        svg_ << "</svg>\n";
        return svg_.str();
    }

private:
    std::ostringstream svg_;
};

/// Places panels of any heights two beside each other, and draws them.
template <typename Panel, typename Height, typename Draw>
std::string draw_panels(const std::vector<Panel>& panels, Height height_of, Draw draw) {
    double total = kMargin;
    std::vector<double> tops;
    for (size_t first = 0; first < panels.size(); first += kColumns) {
        double height = 0;
        for (size_t i = first; i < std::min(first + kColumns, panels.size()); ++i) {
            tops.push_back(total);
            height = std::max(height, height_of(panels[i]));
        }
        total += height + kMargin;
    }
    Drawing drawing(kColumns * kPanelWidth + kMargin, total);
    for (size_t i = 0; i < panels.size(); ++i)
        draw(drawing, kMargin + static_cast<double>(i % kColumns) * kPanelWidth, tops[i], panels[i]);
    return drawing.finish();
}

void draw_bars(Drawing& drawing, double x, double y, const QoBarPanel& panel) {
    drawing.text(x, y + kTextDrop, panel.title, "title");
    double largest = 0;
    for (const QoBar& bar : panel.bars) largest = std::max(largest, bar.value);
    for (const QoBar& bar : panel.bars) {
        const double top = y + kTitle + kBarStep * static_cast<double>(&bar - panel.bars.data());
        const double length = largest > 0 ? bar.value / largest * kLongestBar : 0;
        drawing.text(x + kBarStart - 6, top + kTextDrop, bar.label, "end");
        drawing.bar(x + kBarStart, top, length, bar.stands_out);
        drawing.text(x + kBarStart + length + 6, top + kTextDrop, short_number(bar.value));
    }
}

/// From a panel's values to places in the drawing.
struct Scale {
    double left;
    double bottom;
    double least_x;  // powers of ten
    double most_x;
    double most_y;

    double x(double value) const {
        const double span = std::max(most_x - least_x, kRoundingError);
        return left + (std::log10(value) - least_x) / span * kPlotWidth;
    }
    double y(double value) const { return bottom - value / most_y * kPlotHeight; }
};

Scale scale_of(const QoLinePanel& panel, double left, double bottom) {
    Scale scale{left, bottom, 300, -300, 0};
    for (const QoLine& line : panel.lines) {
        for (const auto& [x, y] : line.points) {
            scale.least_x = std::min(scale.least_x, std::log10(x));
            scale.most_x = std::max(scale.most_x, std::log10(x));
            scale.most_y = std::max(scale.most_y, y);
        }
    }
    return scale;
}

void draw_axes(Drawing& drawing, const Scale& scale) {
    drawing.axis(scale.left, scale.bottom, scale.left + kPlotWidth, scale.bottom);
    drawing.axis(scale.left, scale.bottom, scale.left, scale.bottom - kPlotHeight);
    for (const double part : {0.0, 0.5, 1.0})
        drawing.text(scale.left - 6, scale.y(scale.most_y * part) + 4, short_number(scale.most_y * part), "end");
    const auto last = static_cast<int>(std::floor(scale.most_x + kRoundingError));
    for (auto power = static_cast<int>(std::ceil(scale.least_x - kRoundingError)); power <= last; ++power)
        drawing.text(scale.x(std::pow(10, power)), scale.bottom + 16, short_number(std::pow(10, power)), "middle");
}

void draw_lines(Drawing& drawing, double x, double y, const QoLinePanel& panel) {
    drawing.text(x, y + kTextDrop, panel.title, "title");
    const Scale scale = scale_of(panel, x + kPlotStart, y + kTitle + kPlotHeight + 8);
    draw_axes(drawing, scale);
    for (size_t i = 0; i < panel.lines.size(); ++i) {
        std::vector<std::pair<double, double>> places;
        for (const auto& [value_x, value_y] : panel.lines[i].points)
            places.emplace_back(scale.x(value_x), scale.y(value_y));
        drawing.line(places, kLineColours[i % kLineColours.size()]);
        drawing.text(places.back().first + 8, places.back().second + 4, panel.lines[i].label);
    }
}

}  // namespace

std::string qo_bar_chart(const std::vector<QoBarPanel>& panels) {
    return draw_panels(
        panels, [](const QoBarPanel& panel) { return kTitle + kBarStep * static_cast<double>(panel.bars.size()); },
        draw_bars);
}

std::string qo_line_chart(const std::vector<QoLinePanel>& panels) {
    return draw_panels(
        panels, [](const QoLinePanel&) { return kTitle + kPlotHeight + 32; }, draw_lines);
}
