// Renderers of the output document: a self-contained HTML report and plain-text tables.
// The document layout is described in docs/output-format.md.
#ifndef STATHOST_RENDER_H_
#define STATHOST_RENDER_H_

#include <nlohmann/json.hpp>
#include <string>

namespace stathost {

// The whole document as one self-contained HTML file (inline CSS, no external resources).
std::string renderHtml(const nlohmann::json& document);

// The whole document as plain-text tables. Lines are kept within maxWidth code points where
// possible (wide tables are split into panels, long text is wrapped); 0 means no limit.
// Without `messages` the runs' messages are left out (for a reader who saw them already).
std::string renderText(const nlohmann::json& document, int maxWidth = 0, bool messages = true);

// One chart item as an HTML fragment: the chart drawn as inline SVG from its GPL statements
// and data, with the data columns and the GPL text folded underneath.
std::string renderChartHtml(const nlohmann::json& chart);

// Escapes &, <, >, " and ' for use in HTML text and attribute values. UTF-8 passes unchanged.
std::string htmlEscape(const std::string& text);

}  // namespace stathost

#endif  // STATHOST_RENDER_H_
