// tests/tools/tavlo_plot_test.cpp: tavlo plot run as a user runs it. The
// charts it writes are read back as XML (a small reader here, which also
// checks that they are well-formed) and their drawing is measured against the
// values of the logs: the axes' tick labels give the scale, so the checks do
// not depend on the chart's layout.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "support/read_database.h"
#include "tools/run_tavlo.h"

namespace tavlo::test {
namespace {

// ---- An XML reader for the charts ----------------------------------------

struct Element {
    std::string name;
    std::map<std::string, std::string> attributes;
    std::string text;  // all character data inside, children's too, decoded
    std::vector<Element> children;

    std::string Attribute(const std::string& key) const {
        const auto found = attributes.find(key);
        return found != attributes.end() ? found->second : "";
    }
    double Number(const std::string& key) const { return std::stod(Attribute(key)); }

    // Every element below this one (not itself) with that name and class
    // ("" for any), in document order.
    std::vector<const Element*> Find(const std::string& element, const std::string& cls) const {
        std::vector<const Element*> found;
        for (const Element& child : children) {
            if (child.name == element && (cls.empty() || child.Attribute("class") == cls)) {
                found.push_back(&child);
            }
            for (const Element* below : child.Find(element, cls)) {
                found.push_back(below);
            }
        }
        return found;
    }
};

void AppendUtf8(std::string& out, unsigned long code) {
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | code >> 6);
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xE0 | code >> 12);
        out += static_cast<char>(0x80 | (code >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

bool ValidUtf8(const std::string& text) {
    for (std::size_t i = 0; i < text.size();) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const std::size_t more = byte < 0x80 ? 0 : byte >= 0xC2 && byte < 0xE0 ? 1
                                 : byte >= 0xE0 && byte < 0xF0                ? 2
                                 : byte >= 0xF0 && byte < 0xF5                ? 3
                                                                              : 4;
        if (more == 4 || i + more >= text.size()) {
            return false;
        }
        for (std::size_t k = 1; k <= more; ++k) {
            if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) {
                return false;
            }
        }
        i += more + 1;
    }
    return true;
}

// A well-formedness check and reader of one document: nested elements,
// quoted attributes, the predefined and numeric character references,
// comments and the XML declaration; no DTD, no CDATA sections.
class XmlReader {
public:
    explicit XmlReader(std::string text) : text_(std::move(text)) {}

    // The root element; error() says why there is none.
    bool Read(Element& root) {
        if (!ValidUtf8(text_)) {
            return Fail("not UTF-8");
        }
        if (text_.compare(0, 5, "<?xml") == 0) {
            at_ = text_.find("?>");
            if (at_ == std::string::npos) {
                return Fail("unended declaration");
            }
            at_ += 2;
        }
        if (!SkipMisc() || !ReadElement(root) || !SkipMisc()) {
            return false;
        }
        return at_ == text_.size() || Fail("content after the root element");
    }

    const std::string& error() const { return error_; }

private:
    bool Fail(const std::string& why) {
        error_ = why + " at byte " + std::to_string(at_);
        return false;
    }

    void SkipSpace() {
        while (at_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[at_]))) {
            ++at_;
        }
    }

    bool SkipComment() {
        const std::size_t end = text_.find("-->", at_);
        if (end == std::string::npos) {
            return Fail("unended comment");
        }
        at_ = end + 3;
        return true;
    }

    bool SkipMisc() {
        for (;;) {
            SkipSpace();
            if (text_.compare(at_, 4, "<!--") != 0) {
                return true;
            }
            if (!SkipComment()) {
                return false;
            }
        }
    }

    std::string Name() {
        const std::size_t start = at_;
        while (at_ < text_.size() && (std::isalnum(static_cast<unsigned char>(text_[at_])) ||
                                      std::string_view("_:-.").find(text_[at_]) !=
                                          std::string_view::npos)) {
            ++at_;
        }
        return text_.substr(start, at_ - start);
    }

    // Character data up to `stop`, references decoded.
    bool Characters(char stop, std::string& out) {
        while (at_ < text_.size() && text_[at_] != stop) {
            const char c = text_[at_];
            if (c == '<' || (stop == '<' && text_.compare(at_, 3, "]]>") == 0)) {
                return Fail("markup character in text");
            }
            if (static_cast<unsigned char>(c) < 0x20 && c != '\n' && c != '\t' && c != '\r') {
                return Fail("control character");
            }
            if (c != '&') {
                out += c;
                ++at_;
                continue;
            }
            const std::size_t end = text_.find(';', at_);
            if (end == std::string::npos) {
                return Fail("unended reference");
            }
            const std::string name = text_.substr(at_ + 1, end - at_ - 1);
            static const std::map<std::string, char> kNamed = {
                {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};
            if (kNamed.count(name) != 0) {
                out += kNamed.at(name);
            } else if (name.size() > 1 && name[0] == '#') {
                const bool hex = name[1] == 'x';
                const std::string digits = name.substr(hex ? 2 : 1);
                std::size_t used = 0;
                const unsigned long code =
                    digits.empty() ? 0 : std::stoul(digits, &used, hex ? 16 : 10);
                if (used != digits.size() || (code < 0x20 && code != 9 && code != 10 && code != 13) ||
                    code > 0xFFFD) {
                    return Fail("bad character reference &" + name + ";");
                }
                AppendUtf8(out, code);
            } else {
                return Fail("unknown reference &" + name + ";");
            }
            at_ = end + 1;
        }
        return at_ < text_.size() || stop == '<' || Fail("unended text");
    }

    bool ReadElement(Element& element) {
        if (at_ >= text_.size() || text_[at_] != '<') {
            return Fail("no element");
        }
        ++at_;
        element.name = Name();
        if (element.name.empty()) {
            return Fail("element without a name");
        }
        for (;;) {
            SkipSpace();
            if (text_.compare(at_, 2, "/>") == 0) {
                at_ += 2;
                return true;
            }
            if (text_.compare(at_, 1, ">") == 0) {
                ++at_;
                break;
            }
            const std::string key = Name();
            SkipSpace();
            if (key.empty() || text_.compare(at_, 1, "=") != 0) {
                return Fail("bad attribute in <" + element.name + ">");
            }
            ++at_;
            SkipSpace();
            const char quote = at_ < text_.size() ? text_[at_] : '\0';
            if (quote != '"' && quote != '\'') {
                return Fail("unquoted attribute " + key);
            }
            ++at_;
            std::string value;
            if (!Characters(quote, value)) {
                return false;
            }
            ++at_;
            if (!element.attributes.emplace(key, value).second) {
                return Fail("attribute " + key + " twice");
            }
        }
        for (;;) {
            if (!Characters('<', element.text)) {
                return false;
            }
            if (at_ >= text_.size()) {
                return Fail("<" + element.name + "> not closed");
            }
            if (text_.compare(at_, 4, "<!--") == 0) {
                if (!SkipComment()) {
                    return false;
                }
            } else if (text_.compare(at_, 2, "</") == 0) {
                at_ += 2;
                const std::string name = Name();
                SkipSpace();
                if (name != element.name || text_.compare(at_, 1, ">") != 0) {
                    return Fail("<" + element.name + "> closed by </" + name + ">");
                }
                ++at_;
                return true;
            } else {
                element.children.emplace_back();
                if (!ReadElement(element.children.back())) {
                    return false;
                }
                element.text += element.children.back().text;
            }
        }
    }

    const std::string text_;
    std::size_t at_ = 0;
    std::string error_;
};

TEST(TavloPlotXmlReader, TellsWellFormedDocumentsFromOthers) {
    struct Case {
        const char* text;
        bool wellFormed;
    };
    const Case cases[] = {
        {"<?xml version=\"1.0\"?>\n<a x=\"1\" y='2'><b>t &amp; &#x3C;&#62;</b><c/></a>\n", true},
        {"<a><!-- note --><b/></a>", true},
        {"<a><b></a></b>", false},
        {"<a><b></a>", false},
        {"<a x=1/>", false},
        {"<a x=\"<\"/>", false},
        {"<a>&</a>", false},
        {"<a>&nbsp;</a>", false},
        {"<a>&#1;</a>", false},
        {"<a>x</a><b/>", false},
        {"<a x=\"1\" x=\"2\"/>", false},
        {"<a>\xE9</a>", false},  // a Latin-1 byte is not UTF-8
        {"<a>\xC3\xA9</a>", true},
    };
    for (const Case& c : cases) {
        Element root;
        XmlReader reader(c.text);
        EXPECT_EQ(reader.Read(root), c.wellFormed) << c.text << ": " << reader.error();
    }
    Element root;
    ASSERT_TRUE(XmlReader("<a>x<b k=\"&quot;v&quot;\">&lt;y&#xE9;</b></a>").Read(root));
    EXPECT_EQ(root.text, "x<y\xC3\xA9");
    EXPECT_EQ(root.Find("b", "").front()->Attribute("k"), "\"v\"");
}

// ---- The charts, measured --------------------------------------------------

struct Point {
    double x;
    double y;
};

// A straight map from one axis' pixels to its values, fitted to its first
// and last tick.
struct Scale {
    std::vector<std::pair<double, double>> ticks;  // value, pixel

    double Value(double pixel) const {
        const auto& [v0, p0] = ticks.front();
        const auto& [v1, p1] = ticks.back();
        return v0 + (pixel - p0) * (v1 - v0) / (p1 - p0);
    }
    // What a fifth of a pixel stands for: coordinates are written to a
    // tenth, the ticks' as well.
    double Resolution() const {
        const auto& [v0, p0] = ticks.front();
        const auto& [v1, p1] = ticks.back();
        return std::fabs((v1 - v0) / (p1 - p0)) * 0.2;
    }
};

// Tick labels of class cls below element, by their value and pixel position.
Scale Ticks(const Element& element, const std::string& cls, const char* coordinate) {
    Scale scale;
    for (const Element* label : element.Find("text", cls)) {
        scale.ticks.emplace_back(std::stod(label->text), label->Number(coordinate));
    }
    return scale;
}

std::vector<Point> Points(const std::string& text) {
    std::vector<Point> points;
    std::size_t at = 0;
    while (at < text.size()) {
        std::size_t used = 0;
        const double x = std::stod(text.substr(at), &used);
        at += used + 1;  // the comma
        const double y = std::stod(text.substr(at), &used);
        at += used;
        points.push_back({x, y});
        while (at < text.size() && text[at] == ' ') {
            ++at;
        }
    }
    return points;
}

struct Panel {
    std::string title;
    std::string unit;  // "" when the panel has none
    bool noValues = false;
    Scale values;
    std::vector<Point> line;     // the polyline's corners
    std::vector<Point> samples;  // the steps' corners where a value starts
    std::size_t dots = 0;
    double top = 0;
    double bottom = 0;
};

struct Chart {
    bool read = false;
    std::string text;
    Element root;
    std::vector<Panel> panels;
    Scale time;
    std::string timeAxis;
};

Chart ReadChart(const std::string& text) {
    Chart chart;
    chart.text = text;
    XmlReader reader(text);
    chart.read = reader.Read(chart.root);
    EXPECT_TRUE(chart.read) << reader.error();
    if (!chart.read) {
        return chart;
    }
    for (const Element* g : chart.root.Find("g", "panel")) {
        Panel panel;
        panel.title = g->Find("text", "title").at(0)->text;
        const std::vector<const Element*> units = g->Find("text", "unit");
        panel.unit = units.empty() ? "" : units.front()->text;
        panel.noValues = !g->Find("text", "empty").empty();
        panel.values = Ticks(*g, "ytick", "y");
        const std::vector<const Element*> lines = g->Find("polyline", "");
        if (!lines.empty()) {
            panel.line = Points(lines.front()->Attribute("points"));
        }
        // Steps: value i starts at corner 2i; corner 2i-1 carries value i-1
        // over to it.
        for (std::size_t i = 0; i < panel.line.size(); i += 2) {
            panel.samples.push_back(panel.line[i]);
        }
        panel.dots = g->Find("circle", "").size();
        const Element* frame = g->Find("rect", "frame").at(0);
        panel.top = frame->Number("y");
        panel.bottom = panel.top + frame->Number("height");
        chart.panels.push_back(panel);
    }
    chart.time = Ticks(chart.root, "xtick", "x");
    const std::vector<const Element*> axis = chart.root.Find("text", "axis");
    chart.timeAxis = axis.empty() ? "" : axis.front()->text;
    return chart;
}

void WriteFile(const std::string& path, const std::string& text) {
    std::FILE* out = std::fopen(path.c_str(), "wb");
    ASSERT_NE(out, nullptr) << path;
    std::fputs(text.c_str(), out);
    std::fclose(out);
}

struct Plotted {
    Outcome run;
    Chart chart;
};

// Runs "tavlo plot ARGUMENTS -o SVG" and reads the chart it wrote.
Plotted Plot(const std::string& arguments) {
    const std::string svg = TestFilePath(".svg");
    std::remove(svg.c_str());
    Plotted plotted{Tavlo("plot " + arguments + " -o " + svg), {}};
    plotted.chart = ReadChart(FileContent(svg));
    std::remove(svg.c_str());
    return plotted;
}

// Writes text as a log of its own and plots signals of it.
Plotted PlotLog(const std::string& db, const std::string& text, const std::string& signals) {
    const std::string log = TestFilePath(".log");
    WriteFile(log, text);
    Plotted plotted = Plot(db + " " + log + " " + signals);
    std::remove(log.c_str());
    return plotted;
}

// Whether step is 1, 2 or 5 times a power of ten.
bool RoundStep(double step) {
    const double mantissa = step / std::pow(10.0, std::floor(std::log10(step) + 1e-9));
    for (const double round : {1.0, 2.0, 5.0, 10.0}) {
        if (std::fabs(mantissa - round) < 1e-6) {
            return true;
        }
    }
    return false;
}

// Ticks at round numbers, evenly spaced, larger values further along
// (`upward`: higher up, at smaller pixel coordinates).
void ExpectRoundTicks(const Scale& scale, bool upward, const std::string& where) {
    ASSERT_GE(scale.ticks.size(), 2u) << where;
    const double step = scale.ticks[1].first - scale.ticks[0].first;
    const double spacing = scale.ticks[1].second - scale.ticks[0].second;
    EXPECT_TRUE(RoundStep(step)) << where << ": step " << step;
    EXPECT_EQ(spacing < 0, upward) << where;
    for (std::size_t i = 0; i < scale.ticks.size(); ++i) {
        const auto [value, pixel] = scale.ticks[i];
        EXPECT_NEAR(value / step, std::round(value / step), 1e-6) << where << ": " << value;
        if (i > 0) {
            EXPECT_NEAR(value - scale.ticks[i - 1].first, step, step * 1e-6) << where;
            EXPECT_NEAR(pixel - scale.ticks[i - 1].second, spacing, 0.15) << where;
        }
    }
}

std::size_t Count(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

// The drawn samples as values, by the chart's own scales.
std::vector<Point> Values(const Chart& chart, const Panel& panel) {
    std::vector<Point> values;
    for (const Point& sample : panel.samples) {
        values.push_back({chart.time.Value(sample.x), panel.values.Value(sample.y)});
    }
    return values;
}

// ---- The subcommand --------------------------------------------------------

TEST(TavloPlot, TheExampleLogOnePanelPerSignalWithTitleUnitAndAxes) {
    const std::string db = Example("vehicle.dbc");
    const std::string log = Example("vehicle.log");
    const Plotted plotted = Plot(db + " " + log + " EngineSpeed BodySensors.OutsideTemp GearActual");
    EXPECT_EQ(plotted.run.status, 0);
    EXPECT_EQ(plotted.run.err, "");
    const Chart& chart = plotted.chart;
    ASSERT_TRUE(chart.read);
    EXPECT_EQ(chart.root.name, "svg");
    EXPECT_EQ(chart.root.Attribute("xmlns"), "http://www.w3.org/2000/svg");
    EXPECT_EQ(chart.root.Attribute("viewBox"),
              "0 0 " + chart.root.Attribute("width") + " " + chart.root.Attribute("height"));
    EXPECT_GT(chart.root.Number("width"), 0);
    ASSERT_EQ(chart.panels.size(), 3u);

    struct Expected {
        const char* signal;
        const char* message;
        const char* unit;
    };
    const Expected expected[] = {{"EngineSpeed", "EngineData1", "rpm"},
                                 {"OutsideTemp", "BodySensors", "degC"},
                                 {"GearActual", "GearboxStatus", ""}};
    const Outcome decoded = Tavlo("decode " + db + " " + log);
    double previousBottom = 0;
    for (std::size_t i = 0; i < 3; ++i) {
        const Panel& panel = chart.panels[i];
        const std::string signal = expected[i].signal;
        EXPECT_EQ(panel.title.rfind(signal + " ", 0), 0u) << panel.title;
        EXPECT_NE(panel.title.find(expected[i].message), std::string::npos) << panel.title;
        EXPECT_EQ(panel.unit, expected[i].unit) << signal;
        EXPECT_GT(panel.top, previousBottom) << signal << ": panels stack downward";
        previousBottom = panel.bottom;
        ExpectRoundTicks(panel.values, true, signal);
        // As many samples as frames in which decode shows the signal, all
        // inside the panel.
        const std::size_t frames = Count(decoded.out, "  " + signal + "=");
        EXPECT_GT(frames, 0u) << signal;
        EXPECT_EQ(panel.samples.size(), frames) << signal;
        EXPECT_NE(panel.title.find(std::to_string(frames) + " values"), std::string::npos)
            << panel.title;
        for (const Point& point : panel.line) {
            EXPECT_GE(point.y, panel.top) << signal;
            EXPECT_LE(point.y, panel.bottom) << signal;
        }
    }
    ExpectRoundTicks(chart.time, false, "time");
    EXPECT_EQ(chart.time.ticks.front().first, 0);  // from the first frame on
    EXPECT_EQ(chart.timeAxis, "time in s from the first frame");
}

// EngineData of powertrain.dbc: EngineSpeed is bytes 0-1 (Intel, 0.25 rpm);
// Mux (byte 3, low half) 0 carries OilPressure, 1 OilLevel, both 8 bits from
// byte 3's high half on.
std::string EngineData(unsigned int speedRaw, unsigned int mux, unsigned int oil) {
    char data[32];
    std::snprintf(data, sizeof data, "%02X%02X02%02X%02X000000", speedRaw & 0xFF, speedRaw >> 8,
                  (oil & 0xF) << 4 | mux, oil >> 4);
    return data;
}

// A log line in the file form, or in the screen form without a time.
std::string LogLine(const std::string& time, const std::string& data) {
    if (!time.empty()) {
        return "(" + time + ") can0 100#" + data + "\n";
    }
    std::string line = "  can0  100   [" + std::to_string(data.size() / 2) + "]";
    for (std::size_t i = 0; i < data.size(); i += 2) {
        line += " " + data.substr(i, 2);
    }
    return line + "\n";
}

TEST(TavloPlot, EverySampleOfAShortLogAtItsTimeAndValue) {
    struct Frame {
        const char* time;
        unsigned int raw;
        double speed;  // rpm
    };
    const Frame frames[] = {
        {"1600000000.250000", 4000, 1000},     {"1600000000.750000", 1000, 250},
        {"1600000001.250000", 0, 0},           {"1600000002.250000", 65535, 16383.75},
        {"1600000004.250000", 8000, 2000},
    };
    std::string text;
    for (const Frame& frame : frames) {
        text += LogLine(frame.time, EngineData(frame.raw, 0, 0));
    }
    const Plotted plotted = PlotLog(ManagerData("powertrain.dbc"), text, "EngineSpeed");
    EXPECT_EQ(plotted.run.status, 0) << plotted.run.err;
    const Chart& chart = plotted.chart;
    ASSERT_EQ(chart.panels.size(), 1u);
    const Panel& panel = chart.panels[0];
    ASSERT_EQ(panel.samples.size(), std::size(frames));
    EXPECT_EQ(panel.dots, std::size(frames));  // few samples are marked
    EXPECT_EQ(panel.line.size(), 2 * std::size(frames) - 1);
    const std::vector<Point> values = Values(chart, panel);
    for (std::size_t i = 0; i < values.size(); ++i) {
        const double time = std::stod(frames[i].time) - std::stod(frames[0].time);
        EXPECT_NEAR(values[i].x, time, chart.time.Resolution()) << i;
        EXPECT_NEAR(values[i].y, frames[i].speed, panel.values.Resolution()) << i;
        if (i > 0) {
            // A step: the previous value up to this sample's time.
            EXPECT_EQ(panel.line[2 * i - 1].x, panel.line[2 * i].x) << i;
            EXPECT_EQ(panel.line[2 * i - 1].y, panel.line[2 * i - 2].y) << i;
            // Higher values higher up.
            EXPECT_EQ(panel.samples[i].y < panel.samples[i - 1].y,
                      frames[i].speed > frames[i - 1].speed)
                << i;
        }
    }
}

TEST(TavloPlot, MultiplexedSignalsOnlyInTheFramesOfTheirMultiplexerValue) {
    struct Frame {
        unsigned int mux;
        unsigned int oil;  // OilPressure (kPa) for 0, OilLevel (%) for 1
    };
    const Frame frames[] = {{0, 48}, {0, 52}, {1, 50}, {0, 54}, {1, 79}, {0, 55}};
    std::string text;
    for (const Frame& frame : frames) {
        text += LogLine("", EngineData(4000, frame.mux, frame.oil));
    }
    // Too short for the oil signals: neither gets a value from it.
    text += LogLine("", "A00F02");
    const Plotted plotted =
        PlotLog(ManagerData("powertrain.dbc"), text, "OilPressure EngineData.OilLevel");
    EXPECT_EQ(plotted.run.status, 0) << plotted.run.err;
    const Chart& chart = plotted.chart;
    EXPECT_EQ(chart.timeAxis, "frame number (the log has no timestamps)");
    ASSERT_EQ(chart.panels.size(), 2u);
    EXPECT_EQ(chart.panels[0].unit, "kPa");
    EXPECT_EQ(chart.panels[1].unit, "%");
    for (unsigned int mux = 0; mux <= 1; ++mux) {
        const Panel& panel = chart.panels[mux];
        std::vector<Point> expected;  // frame number from 1, value
        for (std::size_t i = 0; i < std::size(frames); ++i) {
            if (frames[i].mux == mux) {
                expected.push_back({static_cast<double>(i + 1), static_cast<double>(frames[i].oil)});
            }
        }
        const std::vector<Point> values = Values(chart, panel);
        ASSERT_EQ(values.size(), expected.size()) << mux;
        for (std::size_t i = 0; i < values.size(); ++i) {
            EXPECT_NEAR(values[i].x, expected[i].x, chart.time.Resolution()) << mux << " " << i;
            EXPECT_NEAR(values[i].y, expected[i].y, panel.values.Resolution()) << mux << " " << i;
        }
    }
}

TEST(TavloPlot, ALongLogIsThinnedAndKeepsItsSmallestAndLargestValues) {
    // EngineSpeed along a slow ramp with one spike up and one down.
    const std::size_t count = 200000;
    const std::size_t spikeUp = 123457;
    const std::size_t spikeDown = 45679;
    std::string text;
    text.reserve(count * 48);
    double lowest = 1e9;
    double highest = -1e9;
    for (std::size_t i = 0; i < count; ++i) {
        unsigned int raw = 4000 + static_cast<unsigned int>(i % 20000) / 10;  // 1000..1499.75 rpm
        raw = i == spikeUp ? 60000 : i == spikeDown ? 40 : raw;
        lowest = std::min(lowest, raw * 0.25);
        highest = std::max(highest, raw * 0.25);
        char time[32];
        std::snprintf(time, sizeof time, "%zu.%06zu", 1600000000 + i / 1000, i % 1000 * 1000);
        text += LogLine(time, EngineData(raw, 0, 0));
    }
    const Plotted plotted = PlotLog(ManagerData("powertrain.dbc"), text, "EngineSpeed");
    EXPECT_EQ(plotted.run.status, 0) << plotted.run.err;
    const Chart& chart = plotted.chart;
    ASSERT_EQ(chart.panels.size(), 1u);
    const Panel& panel = chart.panels[0];
    EXPECT_NE(panel.title.find(std::to_string(count) + " values"), std::string::npos);
    // Far fewer corners than samples: a handful per pixel column.
    const double width = chart.root.Number("width");
    EXPECT_LE(panel.line.size(), 8 * width);
    EXPECT_LT(chart.text.size(), 200000u);
    EXPECT_EQ(panel.dots, 0u);
    // The spikes survive, where they were.
    const std::vector<Point> values = Values(chart, panel);
    ASSERT_FALSE(values.empty());
    Point top = values[0];
    Point bottom = values[0];
    for (const Point& value : values) {
        top = value.y > top.y ? value : top;
        bottom = value.y < bottom.y ? value : bottom;
    }
    EXPECT_NEAR(top.y, highest, panel.values.Resolution());
    EXPECT_NEAR(bottom.y, lowest, panel.values.Resolution());
    // A pixel column is about 0.235 s here.
    EXPECT_NEAR(top.x, spikeUp / 1000.0, 0.5);
    EXPECT_NEAR(bottom.x, spikeDown / 1000.0, 0.5);
    // The curve ends at the log's last value.
    EXPECT_NEAR(values.back().y, (4000 + (count - 1) % 20000 / 10) * 0.25,
                panel.values.Resolution());
}

// A database whose names need escaping in XML, with a signal name found in
// two messages.
const char kOddNames[] =
    "VERSION \"\"\n\nNS_ :\n\nBS_:\n\nBU_: Ecu\n\n"
    "BO_ 256 Motor: 8 Ecu\n"
    " SG_ Torque : 0|16@1- (0.5,0) [-1000|1000] \"N<m>&\\\"x\\\"\" Ecu\n"
    " SG_ Speed : 16|16@1+ (1,0) [0|10000] \"rpm\" Ecu\n"
    " SG_ Heat : 32|8@1+ (1,-40) [-40|215] \"\xB0" "C\" Ecu\n\n"
    "BO_ 257 Brake: 8 Ecu\n"
    " SG_ Speed : 0|16@1+ (1,0) [0|10000] \"rpm\" Ecu\n\n"
    "BA_DEF_ SG_  \"SystemSignalLongSymbol\" STRING ;\n"
    "BA_DEF_DEF_  \"SystemSignalLongSymbol\" \"\";\n"
    "BA_ \"SystemSignalLongSymbol\" SG_ 256 Torque "
    "\"Torque_<A&B>_\\\"quoted\\\"_ALongNameOfMoreThan32Characters\";\n";

constexpr char kLongName[] = "Torque_<A&B>_\"quoted\"_ALongNameOfMoreThan32Characters";

TEST(TavloPlot, NamesAndUnitsAreEscaped) {
    const std::string db = TestFilePath(".dbc");
    WriteFile(db, kOddNames);
    // By the long name or the record's own.
    for (const std::string& name : {ShellQuoted(kLongName), std::string("Torque")}) {
        const Plotted plotted =
            PlotLog(db, "(1.0) can0 100#0A00E80364000000\n(2.0) can0 100#F6FFD00714000000\n",
                    name + " Heat");
        EXPECT_EQ(plotted.run.status, 0) << plotted.run.err;
        const Chart& chart = plotted.chart;
        ASSERT_EQ(chart.panels.size(), 2u) << name;
        EXPECT_EQ(chart.panels[0].title.rfind(std::string(kLongName) + " ", 0), 0u)
            << chart.panels[0].title;
        EXPECT_EQ(chart.panels[0].unit, "N<m>&\"x\"");
        EXPECT_EQ(chart.panels[1].unit, "\xC2\xB0" "C");  // the file's byte as its character
        const std::vector<Point> values = Values(chart, chart.panels[0]);
        ASSERT_EQ(values.size(), 2u);
        EXPECT_NEAR(values[0].y, 5, chart.panels[0].values.Resolution());
        EXPECT_NEAR(values[1].y, -5, chart.panels[0].values.Resolution());
    }
    std::remove(db.c_str());
}

TEST(TavloPlot, StandardInputAndStandardOutput) {
    const std::string db = Example("vehicle.dbc");
    const std::string log = Example("vehicle.log");
    const std::string svg = TestFilePath(".svg");
    ASSERT_EQ(Tavlo("plot " + db + " " + log + " VehicleSpeed -o " + svg).status, 0);
    const std::string written = FileBytes(svg);
    std::remove(svg.c_str());
    EXPECT_TRUE(ReadChart(written).read);
    const Outcome piped = Tavlo("plot " + db + " - VehicleSpeed -o - < " + log);
    EXPECT_EQ(piped.status, 0);
    EXPECT_EQ(piped.out, written);
}

TEST(TavloPlot, TheChartReplacesAFileOnlyOnceTheLogIsRead) {
    const std::string db = Example("vehicle.dbc");
    const std::string log = TestFilePath(".log");
    const std::string text = FileContent(Example("vehicle.log"));
    // Named as the chart by mistake, the log is still read whole.
    WriteFile(log, text);
    const Chart fromItself = [&] {
        EXPECT_EQ(Tavlo("plot " + db + " " + log + " VehicleSpeed -o " + log).status, 0);
        return ReadChart(FileContent(log));
    }();
    // A longer file than the chart leaves nothing behind it.
    WriteFile(log, text);
    const std::string svg = TestFilePath(".svg");
    WriteFile(svg, text + text);
    EXPECT_EQ(Tavlo("plot " + db + " " + log + " VehicleSpeed -o " + svg).status, 0);
    const Chart fromLog = ReadChart(FileContent(svg));
    ASSERT_EQ(fromItself.panels.size(), 1u);
    ASSERT_EQ(fromLog.panels.size(), 1u);
    EXPECT_EQ(fromItself.panels[0].samples.size(), fromLog.panels[0].samples.size());
    EXPECT_GT(fromLog.panels[0].samples.size(), 100u);
    std::remove(log.c_str());
    std::remove(svg.c_str());
}

TEST(TavloPlot, ErrorsAndTheirStatuses) {
    const std::string db = TestFilePath(".dbc");
    const std::string log = TestFilePath(".log");
    const std::string svg = TestFilePath(".svg");
    WriteFile(db, kOddNames);
    WriteFile(log,
              "(1.0) can0 100#0A00E80364000000\nnot a frame\n(2.0) can0 100#F6FFD00714000000\n");
    struct Case {
        std::string arguments;  // after "plot DB"
        int status;
        std::string err;        // all of it
        bool chart;             // a chart was written
    };
    const Case cases[] = {
        {log + " Speed -o " + svg, 1,
         db + ": signal Speed is in several messages: Motor.Speed, Brake.Speed\n", false},
        {log + " Torque Nope -o " + svg, 1, db + ": no signal Nope\n", false},
        {log + " Gearbox.Speed -o " + svg, 1, db + ": no signal Gearbox.Speed\n", false},
        {log + " Motor.Speed -o " + svg, 1, log + ":2: not a CAN frame: not a frame\n", true},
        {log + ".missing Motor.Speed -o " + svg, 1,
         log + ".missing: cannot be read: No such file or directory\n" + log +
             ".missing: no values of Motor.Speed\n",
         true},
        {log + " Brake.Speed -o " + svg, 1,
         log + ":2: not a CAN frame: not a frame\n" + log + ": no values of Brake.Speed\n", true},
        {log + " Motor.Speed -o " + svg + ".d/x.svg", 1,
         svg + ".d/x.svg: cannot be written: No such file or directory\n", false},
    };
    for (const Case& c : cases) {
        std::remove(svg.c_str());
        const Outcome run = Tavlo("plot " + db + " " + c.arguments);
        EXPECT_EQ(run.status, c.status) << c.arguments;
        EXPECT_EQ(run.err, c.err) << c.arguments;
        const std::string written = FileContent(svg);
        EXPECT_EQ(!written.empty(), c.chart) << c.arguments;
        if (c.chart) {
            EXPECT_TRUE(ReadChart(written).read) << c.arguments;
        }
    }
    std::remove(svg.c_str());

    // A signal the log has no value of: a panel that says so, and a note;
    // not an error by itself.
    WriteFile(log, "(1.0) can0 100#0A00E80364000000\n");
    const Plotted empty = Plot(db + " " + log + " Brake.Speed Motor.Speed");
    EXPECT_EQ(empty.run.status, 0);
    EXPECT_EQ(empty.run.err, log + ": no values of Brake.Speed\n");
    ASSERT_EQ(empty.chart.panels.size(), 2u);
    EXPECT_TRUE(empty.chart.panels[0].noValues);
    EXPECT_TRUE(empty.chart.panels[0].line.empty());
    EXPECT_FALSE(empty.chart.panels[1].noValues);
    EXPECT_EQ(empty.chart.panels[1].samples.size(), 1u);
    EXPECT_EQ(empty.chart.panels[1].dots, 1u);  // a lone value is seen
    std::remove(db.c_str());
    std::remove(log.c_str());
}

TEST(TavloPlot, UsageErrorsShowTheHelp) {
    const std::string db = ManagerData("powertrain.dbc");
    const std::string log = Example("vehicle.log");
    const char* const usage = "usage: tavlo plot DB LOG SIGNAL... -o SVG\n";
    const std::string cases[] = {
        "plot",
        "plot " + db + " " + log + " EngineSpeed",           // no -o
        "plot " + db + " " + log + " -o x.svg",              // no signal
        "plot " + db + " " + log + " EngineSpeed -o",        // -o without a file
        "plot " + db + " " + log + " EngineSpeed --width 3 -o x.svg",
    };
    for (const std::string& arguments : cases) {
        const Outcome run = Tavlo(arguments);
        EXPECT_EQ(run.status, 2) << arguments;
        EXPECT_EQ(run.out, "") << arguments;
        EXPECT_NE(run.err.find(usage), std::string::npos) << arguments << ": " << run.err;
    }
    const Outcome help = Tavlo("plot --help");
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out.rfind(usage, 0), 0u) << help.out;
    EXPECT_NE(Tavlo("--help").out.find("  plot DB LOG SIGNAL... -o SVG"), std::string::npos);
}

}  // namespace
}  // namespace tavlo::test
