/// Charts as SVG that can be read on a light and on a dark page.
#ifndef QO_BENCH_SVG_CHART_H
#define QO_BENCH_SVG_CHART_H

#include <string>
#include <utility>
#include <vector>

struct QoBar {
    std::string label;
    double value;
    bool stands_out;
};

/// Bars of one scale, which begins at 0.
struct QoBarPanel {
    std::string title;
    std::vector<QoBar> bars;
};

/// Panels of horizontal bars, two beside each other.
std::string qo_bar_chart(const std::vector<QoBarPanel>& panels);

struct QoLine {
    std::string label;
    std::vector<std::pair<double, double>> points;  // ascending, above 0
};

/// Lines of one scale: steps of ten from left to right, from 0 upwards.
struct QoLinePanel {
    std::string title;
    std::vector<QoLine> lines;
};

/// Panels of lines, two beside each other.
std::string qo_line_chart(const std::vector<QoLinePanel>& panels);

#endif
