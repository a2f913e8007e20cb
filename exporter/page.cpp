#include "page.h"

#include <fmt/format.h>

#include <algorithm>
#include <deque>

#include "monitor/html.h"

namespace exporter {

using namespace monitor;

namespace {

constexpr int BAR_WIDTH = 4;
constexpr int BAR_HEIGHT = 24;

std::string duration(double seconds) {
    return seconds < 0.9995 ? fmt::format("{:.1f} ms", seconds * 1000) : fmt::format("{:.2f} s", seconds);
}

std::string ago(double seconds) {
    return seconds < 90     ? fmt::format("{:.0f} s ago", std::max(seconds, 0.0))
           : seconds < 5400 ? fmt::format("{:.0f} min ago", seconds / 60)
                            : fmt::format("{:.0f} h ago", seconds / 3600);
}

// The last probes: a bar each, as high as it took long, a full red one where it failed.
std::string bars(const std::deque<PastProbe>& past) {
    double longest = 1e-6;
    std::size_t failed = 0;
    for (const PastProbe& probe : past) {
        longest = std::max(longest, probe.succeeded ? probe.seconds : 0);
        failed += probe.succeeded ? 0 : 1;
    }
    std::string svg = fmt::format(
        "<svg role=\"img\" width=\"{0}\" height=\"{1}\" viewBox=\"0 0 {0} {1}\"><title>{2} scrapes, {3} failed, the "
        "longest {4}</title>",
        PAST_PROBES * BAR_WIDTH, BAR_HEIGHT, past.size(), failed, duration(longest));
    std::size_t place = PAST_PROBES - past.size();
    for (const PastProbe& probe : past) {
        const int height =
            probe.succeeded ? std::max(2, static_cast<int>(probe.seconds / longest * BAR_HEIGHT)) : BAR_HEIGHT;
        svg +=
            fmt::format("<rect class=\"{}\" x=\"{}\" y=\"{}\" width=\"{}\" height=\"{}\"/>",
                        probe.succeeded ? "ok" : "bad", place * BAR_WIDTH, BAR_HEIGHT - height, BAR_WIDTH - 1, height);
        ++place;
    }
    return svg + "</svg>";
}

std::string urlEscaped(std::string_view text) {
    std::string escaped;
    for (const char c : text) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
                           c == '-' || c == '_';
        escaped += plain ? std::string(1, c) : fmt::format("%{:02X}", static_cast<unsigned char>(c));
    }
    return escaped;
}

std::string row(const TargetState& target, double now) {
    const std::string link = fmt::format("/probe?target={}&amp;module={}", urlEscaped(target.name),
                                         urlEscaped(target.module.empty() ? "default" : target.module));
    const char* const state = !target.probed ? "idle" : target.up ? "up" : "down";
    std::string text = fmt::format(
        "<tr><th scope=\"row\"><a href=\"{0}\">{1}</a> <a class=\"small\" href=\"{0}&amp;debug=true\">debug</a></th>"
        "<td data-name=\"State\"><span class=\"{2}\">{3}</span></td><td data-name=\"Module\">{4}</td>",
        link, escapeHtml(target.name), state, target.probed ? state : "not probed yet", escapeHtml(target.module));
    text +=
        fmt::format("<td data-name=\"Took\">{}</td><td data-name=\"Statistics\">{}</td><td data-name=\"Size\">{}</td>",
                    target.probed ? duration(target.seconds) : "",
                    target.contentBytes == 0 ? "" : std::to_string(target.statistics),
                    target.contentBytes == 0 ? ""
                    : target.parts > 1       ? fmt::format("in {} answers", target.parts)
                                             : fmt::format("{} %", target.contentBytes * 100 / RESULT_SET_LIMIT));
    text += fmt::format("<td data-name=\"Scrapes\">{}</td><td data-name=\"Last failure\">", bars(target.past));
    if (!target.failure.empty()) {
        text += fmt::format("{}<br><span class=\"small\">{}{}{}</span>", escapeHtml(target.failure),
                            ago(now - target.failureTime), target.hint.empty() ? "" : ": ", escapeHtml(target.hint));
    }
    return text + "</td></tr>\n";
}

}  // namespace

std::string_view styleSheet() {
    return R"(:root { color-scheme: light dark; --ok: #2e7d32; --bad: #c62828; --line: #8884; }
@media (prefers-color-scheme: dark) { :root { --ok: #81c784; --bad: #ef9a9a; } }
body { font: 15px/1.45 system-ui, sans-serif; margin: 1.5rem auto; max-width: 80rem; padding: 0 1rem; }
h1 { font-size: 1.4rem; }
form { display: flex; flex-wrap: wrap; gap: .5rem; align-items: end; margin: 1rem 0; }
label { display: flex; flex-direction: column; font-size: .85rem; }
input, button { font: inherit; padding: .3rem .5rem; }
table { border-collapse: collapse; width: 100%; }
th, td { text-align: left; vertical-align: top; padding: .4rem .6rem; border-top: 1px solid var(--line); white-space: nowrap; }
td[data-name="Module"], td[data-name="Last failure"] { white-space: normal; overflow-wrap: anywhere; min-width: 6rem; }
thead th { border-top: 0; font-size: .85rem; }
.small { font-size: .85rem; opacity: .75; font-weight: normal; }
.up { color: var(--ok); font-weight: 600; }
.down { color: var(--bad); font-weight: 600; }
rect.ok { fill: var(--ok); }
rect.bad { fill: var(--bad); }
svg { max-width: 100%; }
@media (max-width: 48rem) {
  thead { display: none; }
  tr, th, td { display: block; border: 0; padding: .15rem 0; white-space: normal; overflow-wrap: anywhere; }
  tr { border-top: 1px solid var(--line); padding: .6rem 0; }
  td:empty { display: none; }
  td::before { content: attr(data-name) ": "; font-size: .85rem; opacity: .75; }
}
)";
}

std::string landingPage(const std::vector<TargetState>& targets, std::string_view version, double now) {
    std::string page = fmt::format(R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>zulstat-exporter</title>
<link rel="stylesheet" href="/style.css">
</head>
<body>
<h1>zulstat-exporter <span class="small">{}</span></h1>
<p>Statistics of Gateways, for Prometheus. <a href="/metrics">Metrics of the exporter</a>, <a href="/sd">service discovery</a>,
<a href="/config">configuration</a>.</p>
<form action="/probe">
<label>Target <input name="target" placeholder="gw1:7531" required size="30"></label>
<label>Module <input name="module" value="default" size="12"></label>
<button>Probe</button>
<button name="debug" value="true">Debug</button>
</form>
<table>
<thead><tr><th>Target</th><th>State</th><th>Module</th><th>Took</th><th>Statistics</th><th>Size</th><th>Scrapes</th><th>Last failure</th></tr></thead>
<tbody>
)",
                                   escapeHtml(version));
    for (const TargetState& target : targets) {
        page += row(target, now);
    }
    if (targets.empty()) {
        page += "<tr><td colspan=\"8\">No target is configured, and none was probed yet.</td></tr>\n";
    }
    return page + "</tbody>\n</table>\n</body>\n</html>\n";
}

}  // namespace exporter
