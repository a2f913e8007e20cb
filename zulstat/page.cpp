#include "page.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>

#include "monitor/html.h"
#include "page_style.h"
#include "svg.h"
#include "text.h"

namespace zulstat {

using namespace monitor;

namespace {

constexpr std::size_t MOST_EVENTS = 100;          // of the list
constexpr std::size_t SECTIONS_FOR_CONTENTS = 4;  // and more
constexpr double DAY = 86400;

using Row = Timelines::Row;

// How a statistic is shown.
enum class Shown { line, rates, band, constant, text };

// The kind that most Gateways agree on, of those where it moves.
Shown shownAs(const Row& row) {
    std::map<Shown, int> votes;
    for (const Timeline* line : row.ofGateways) {
        if (line == nullptr || line->constant()) {
            continue;
        }
        const Kind kind = line->kind();
        ++votes[kind == Kind::state  ? Shown::band
                : kind == Kind::text ? Shown::text
                : line->showsRates() ? Shown::rates
                                     : Shown::line];
    }
    const auto most = std::max_element(votes.begin(), votes.end(),
                                       [](const auto& one, const auto& other) { return one.second < other.second; });
    return most == votes.end() ? Shown::constant : most->first;
}

std::string counted(std::uint64_t count, const std::string& what) {
    return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

std::string pair(const std::string& term, const std::string& text) {
    return fmt::format("<div><dt>{}</dt><dd>{}</dd></div>", term, escapeHtml(text));
}

std::string key(char kind, std::size_t number) {
    return fmt::format("<span class=\"key {}{}\"></span>", kind, number);
}

// ---- summary ------------------------------------------------------------------------------------------------------

std::string card(const GatewayTimeline& gateway, bool several) {
    std::string text = "<section class=\"card\">";
    if (several) {
        text += fmt::format("<h3>{}{}</h3>", key('g', gateway.number % GATEWAY_COLORS), escapeHtml(gateway.name));
    }
    text += "<dl>" + pair("Samples", std::to_string(gateway.samples));
    if (several && gateway.samples > 0) {
        text += pair("From", localTime(gateway.firstWall)) + pair("To", localTime(gateway.lastWall));
    }
    if (gateway.usual > 0) {
        text += pair("One every", shortFigure(gateway.usual) + " s");
    }
    const std::uint64_t gaps = gateway.gaps.size() + gateway.moreGaps;
    text += pair("Gaps", gaps == 0 ? "none" : fmt::format("{}, {} in all", gaps, duration(gateway.gapSeconds)));
    text += pair("Connected again", gateway.connections == 0 ? "never" : counted(gateway.connections, "time"));
    std::uint64_t resets = gateway.moreResets + gateway.resets.size();
    text += pair("Counters began anew", resets == 0 ? "never" : counted(resets, "time"));
    if (gateway.failedElements > 0) {
        text += pair("Failed elements", "in " + counted(gateway.failedElements, "sample"));
    }
    return text + "</dl></section>\n";
}

struct Happened {
    double wallTime = 0;
    std::size_t gateway = 0;
    std::string text;  // HTML
};

std::string named(const Timeline& line, std::uint8_t state) {
    return escapeHtml(state < line.states.size() ? line.states[state].text : "another text");
}

// What happened, in the order of time, and how much more there was.
std::vector<Happened> events(const Timelines& lines, const std::vector<Row>& rows, std::uint64_t& more) {
    std::vector<Happened> all;
    for (const GatewayTimeline& gateway : lines.gateways()) {
        more += gateway.moreGaps + gateway.moreResets;
        for (const Gap& gap : gateway.gaps) {
            const std::string length =
                gap.to ? "for " + duration(*gap.to - gap.from) : std::string("until the end of the recording");
            all.push_back(
                {gap.from, gateway.number,
                 fmt::format("no samples {}{}{}", length, gap.reason.empty() ? "" : ": ", escapeHtml(gap.reason))});
        }
        for (const Reset& reset : gateway.resets) {
            all.push_back({reset.wallTime, gateway.number, counted(reset.counters, "counter") + " began anew"});
        }
    }
    for (const Row& row : rows) {
        for (std::size_t gateway = 0; gateway < row.ofGateways.size(); ++gateway) {
            const Timeline* line = row.ofGateways[gateway];
            if (line == nullptr || line->kind() != Kind::state) {
                continue;
            }
            more += line->moreStateChanges;
            for (const StateChange& change : line->stateChanges) {
                all.push_back({change.wallTime, gateway,
                               fmt::format("{}: {} to <b>{}</b>", escapeHtml(line->shownId), named(*line, change.from),
                                           named(*line, change.to))});
            }
        }
    }
    std::stable_sort(all.begin(), all.end(),
                     [](const Happened& one, const Happened& other) { return one.wallTime < other.wallTime; });
    if (all.size() > MOST_EVENTS) {
        more += all.size() - MOST_EVENTS;
        all.resize(MOST_EVENTS);
    }
    return all;
}

std::string eventList(const Timelines& lines, const std::vector<Row>& rows) {
    std::uint64_t more = 0;
    const std::vector<Happened> all = events(lines, rows, more);
    if (all.empty()) {
        return "";
    }
    const bool several = lines.gateways().size() > 1;
    const bool days = lines.to() - lines.from() > DAY / 2;
    std::string text = "<h2 id=\"events\">What happened</h2>\n<ol class=\"events\">\n";
    for (const Happened& one : all) {
        const std::string time = localTime(one.wallTime);
        text += fmt::format("<li><time>{}</time>", days ? time : time.substr(time.find(' ') + 1));
        if (several) {
            text += fmt::format("<span class=\"who\">{}{}</span>", key('g', one.gateway % GATEWAY_COLORS),
                                escapeHtml(lines.gateways()[one.gateway].name));
        }
        text += fmt::format("<span>{}</span></li>\n", one.text);
    }
    text += "</ol>\n";
    return text + (more == 0 ? "" : fmt::format("<p class=\"soft\">And {} more.</p>\n", more));
}

std::string summary(const Timelines& lines, const std::vector<PageFile>& files) {
    const auto& gateways = lines.gateways();
    const double from = lines.from();
    const double to = lines.to();
    const std::string title = gateways.size() == 1 ? gateways.front().name : counted(gateways.size(), "Gateway");
    std::string text = fmt::format("<header><h1>{} <small>{}</small></h1>\n", escapeHtml(title),
                                   duration(to - from < 120 ? to - from : std::round((to - from) / 60) * 60));
    text +=
        fmt::format("<p>{} to {} {}</p>\n<p class=\"soft\">", localTime(from), localTime(to), escapeHtml(zoneName(to)));
    for (const PageFile& file : files) {
        text += fmt::format("{}{}: {}{}", &file == &files.front() ? "" : "; ", escapeHtml(file.name),
                            counted(file.samples, "sample"),
                            file.torn == 0 ? "" : ", " + counted(file.torn, "torn line") + " passed over");
    }
    text += "</p></header>\n<div class=\"cards\">\n";
    for (const GatewayTimeline& gateway : gateways) {
        text += card(gateway, gateways.size() > 1);
    }
    text += "</div>\n";
    for (const std::string& left : leftTexts(lines)) {
        text += fmt::format("<p>{}</p>\n", left);
    }
    return text;
}

// ---- plots --------------------------------------------------------------------------------------------------------

// Colours of the states of a statistic: the text that is there most of the time has the first one.
std::map<std::string, std::size_t> stateColors(const Row& row) {
    std::map<std::string, std::uint64_t> samples;
    for (const Timeline* line : row.ofGateways) {
        for (std::size_t state = 0; line != nullptr && state < line->states.size(); ++state) {
            samples[line->states[state].text] += line->states[state].samples;
        }
    }
    std::vector<std::pair<std::string, std::uint64_t>> order(samples.begin(), samples.end());
    std::stable_sort(order.begin(), order.end(),
                     [](const auto& one, const auto& other) { return one.second > other.second; });
    std::map<std::string, std::size_t> colors;
    for (std::size_t place = 0; place < order.size(); ++place) {
        colors[order[place].first] = std::min(place, STATE_COLORS - 1);
    }
    return colors;
}

std::string bands(const PlotFrame& frame, const Row& row) {
    const std::map<std::string, std::size_t> colors = stateColors(row);
    std::vector<Band> all;
    for (const Timeline* line : row.ofGateways) {
        Band band{line, {}};
        for (std::size_t state = 0; line != nullptr && state <= MOST_STATES; ++state) {
            band.colors.push_back(state < line->states.size() ? colors.at(line->states[state].text) : STATE_COLORS - 1);
        }
        all.push_back(std::move(band));
    }
    std::string text = bandPlot(frame, all) + "<ul>";
    std::vector<std::pair<std::size_t, std::string>> legend;
    for (const auto& [state, color] : colors) {
        legend.emplace_back(color, state);
    }
    std::stable_sort(legend.begin(), legend.end());
    for (const auto& [color, state] : legend) {
        text += fmt::format("<li>{}{}</li>", key('s', color), escapeHtml(state));
    }
    return text + "</ul>";
}

// What stands behind the name: the range, and of rates the mean.
std::string captionText(const Row& row, Shown shown) {
    Extent all;
    double grown = 0;
    double seconds = 0;
    std::uint64_t changes = 0;
    Unit unit = Unit::none;
    for (const Timeline* line : row.ofGateways) {
        if (line != nullptr) {
            all.add(shown == Shown::rates ? line->rates : line->values);
            grown += line->grown;
            seconds += line->seconds;
            changes += line->changes;
            unit = line->unit;
        }
    }
    if (shown == Shown::band) {
        return counted(changes, "change");
    }
    if (shown == Shown::rates && seconds > 0) {
        const double mean = grown / seconds;
        return fmt::format("{}, mean {}", rangeText(all, unit, true), rangeText({mean, mean, mean}, unit, true));
    }
    return rangeText(all, unit, shown == Shown::rates);
}

std::string figureOf(const PlotFrame& frame, const Row& row, Shown shown) {
    const Timeline& first = row.first();
    std::string text =
        fmt::format("<figure><figcaption><b title=\"{}\">{}</b><span>{}</span></figcaption>", escapeHtml(first.shownId),
                    escapeHtml(first.shortId), escapeHtml(captionText(row, shown)));
    text += shown == Shown::band ? bands(frame, row) : linePlot(frame, row.ofGateways, shown == Shown::rates);
    return text + "</figure>\n";
}

// ---- tables -------------------------------------------------------------------------------------------------------

// What has no plot: constants, and texts that change often.
std::string valueTable(const Timelines& lines, const std::vector<const Row*>& rows, bool changing) {
    const auto& gateways = lines.gateways();
    std::string text = fmt::format("<div class=\"scroll{}\"><table><thead><tr><th>Statistic</th>",
                                   gateways.size() == 1 ? " parts" : "");
    for (const GatewayTimeline& gateway : gateways) {
        text += gateways.size() == 1
                    ? "<th>Value</th>"
                    : fmt::format("<th>{}{}</th>", key('g', gateway.number % GATEWAY_COLORS), escapeHtml(gateway.name));
    }
    text += "</tr></thead><tbody>\n";
    for (const Row* row : rows) {
        text += fmt::format("<tr><th scope=\"row\">{}</th>", escapeHtml(row->first().shownId));
        for (const Timeline* line : row->ofGateways) {
            if (line == nullptr) {
                text += "<td></td>";
                continue;
            }
            const bool number = line->kind() != Kind::text && line->kind() != Kind::state && line->unit != Unit::none;
            const std::string value =
                number && !line->values.empty() ? figure(Number(line->values.last), line->unit) : line->lastValue;
            text += fmt::format(
                "<td{}>{}{}</td>", number ? fmt::format(" title=\"{}\"", escapeHtml(line->lastValue)) : "",
                escapeHtml(value),
                changing ? fmt::format(" <span class=\"soft\">{}</span>", counted(line->changes, "change")) : "");
        }
        text += "</tr>\n";
    }
    return text + "</tbody></table></div>\n";
}

// A part of the page under a heading of its own.
struct Section {
    std::string title;  // HTML
    std::vector<std::pair<const Row*, Shown>> plots;
};

std::vector<Section> sectionsOf(const std::vector<Row>& rows, std::vector<const Row*>& constants,
                                std::vector<const Row*>& texts) {
    std::vector<Section> sections;
    std::map<std::string, std::size_t> places;
    for (const Row& row : rows) {
        const Shown shown = shownAs(row);
        if (shown == Shown::constant || shown == Shown::text) {
            (shown == Shown::text ? texts : constants).push_back(&row);
            continue;
        }
        const auto [place, fresh] = places.try_emplace(row.first().group, sections.size());
        if (fresh) {
            const std::string& group = row.first().group;
            sections.push_back({group.empty() ? "Statistics" : escapeHtml(group), {}});
        }
        sections[place->second].plots.emplace_back(&row, shown);
    }
    return sections;
}

std::string contents(const std::vector<Section>& sections, bool events, bool texts, bool constants) {
    if (sections.size() < SECTIONS_FOR_CONTENTS) {
        return "";
    }
    std::string text = "<nav><h2>Contents</h2><ul>\n";
    const auto add = [&](const std::string& id, const std::string& title) {
        text += fmt::format("<li><a href=\"#{}\">{}</a></li>\n", id, title);
    };
    if (events) {
        add("events", "What happened");
    }
    for (std::size_t place = 0; place < sections.size(); ++place) {
        add(fmt::format("e{}", place),
            fmt::format("{} <span class=\"soft\">{}</span>", sections[place].title, sections[place].plots.size()));
    }
    if (texts) {
        add("texts", "Texts that change often");
    }
    if (constants) {
        add("constants", "Constants");
    }
    return text + "</ul></nav>\n";
}

std::string legend(const Timelines& lines) {
    if (lines.gateways().size() < 2) {
        return "";
    }
    std::string text = "<div class=\"legend\">";
    for (const GatewayTimeline& gateway : lines.gateways()) {
        text += fmt::format("<span>{}{}</span>", key('g', gateway.number % GATEWAY_COLORS), escapeHtml(gateway.name));
    }
    return text + "</div>\n";
}

}  // namespace

void writePage(const Timelines& lines, const std::vector<PageFile>& files,
               const std::function<void(std::string_view)>& write) {
    const auto& gateways = lines.gateways();
    const std::vector<Row> rows = lines.rows();
    PlotFrame frame{lines.from(), std::max(lines.to(), lines.from() + 1), lines.width(), {}};
    for (const GatewayTimeline& gateway : gateways) {
        frame.gateways.push_back(gateway.name);
    }
    std::vector<const Row*> constants;
    std::vector<const Row*> texts;
    const std::vector<Section> sections = sectionsOf(rows, constants, texts);
    const std::string happened = eventList(lines, rows);

    write(
        fmt::format("<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
                    "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
                    "<title>{}, {}</title>\n<style>\n{}</style>\n</head>\n<body>\n",
                    escapeHtml(gateways.size() == 1 ? gateways.front().name : counted(gateways.size(), "Gateway")),
                    localTime(frame.from), pageStyle()));
    write(summary(lines, files));
    write(contents(sections, !happened.empty(), !texts.empty(), !constants.empty()));
    write(happened);
    // The gaps of several Gateways have no place on a plot that they share; there their lines end.
    write("<svg class=\"shared\" aria-hidden=\"true\"><defs>" +
          sharedParts(frame,
                      gateways.size() == 1 ? std::span<const Gap>(gateways.front().gaps) : std::span<const Gap>()) +
          "</defs></svg>\n");
    write(legend(lines));
    for (std::size_t place = 0; place < sections.size(); ++place) {
        const Section& section = sections[place];
        write(fmt::format("<h2 id=\"e{}\">{}</h2>\n<div class=\"plots\">\n", place, section.title));
        for (const auto& [row, shown] : section.plots) {
            write(figureOf(frame, *row, shown));
        }
        write("</div>\n");
    }
    if (!texts.empty()) {
        write("<h2 id=\"texts\">Texts that change often <small>with the last of each</small></h2>\n");
        write(valueTable(lines, texts, true));
    }
    if (!constants.empty()) {
        write("<h2 id=\"constants\">Constants <small>never changed</small></h2>\n");
        write(valueTable(lines, constants, false));
    }
    write("</body>\n</html>\n");
}

}  // namespace zulstat
