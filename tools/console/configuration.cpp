#include "tools/console/configuration.h"

#include "host/property.h"
#include "tools/console/failure.h"
#include "tools/console/input.h"
#include "tools/dom_element.h"
#include "tools/replay/xml_reader.h"
#include "tools/utf8.h"

#include <algorithm>

namespace orvel::console {

namespace {

[[noreturn]] void Fail(const std::string& text)
{
    throw Failure(ExitCode::Configuration, text);
}

std::string Place(const std::string& file, const replay::TextPlace& place)
{
    return file + ":" + std::to_string(place.line) + ":" + std::to_string(place.column);
}

/// Reads a metric's name and place, and rejects what MSXML would accept and the provider would misread.
MetricConfiguration ReadMetric(replay::XmlReader& reader, const std::string& file)
{
    replay::Arena arena;
    const size_t begin = reader.Offset();
    const replay::Node element = reader.Read(arena);
    const std::string place = Place(file, replay::PlaceOf(reader.Text(), element.begin));
    const std::wstring name(element.Attribute(L"name").value_or(L""));
    if (element.name != L"metric" || name.empty()) {
        Fail(place + ": <" + ToUtf8(element.name) + "> is not a metric with a name; write <metric name=\"...\">");
    }
    for (const replay::Node& property : element.children) {
        if ((property.name == L"query" || property.name == L"channel") && !property.children.empty()) {
            Fail(Place(file, replay::PlaceOf(reader.Text(), property.children.front().begin)) + ": <" +
                 ToUtf8(property.name) +
                 "> must hold text alone; put <![CDATA[ and ]]> around a query that is XML itself");
        }
    }
    try {
        // MSXML gets the element's text alone, since it reports no places.
        const std::string_view xml = reader.Text().substr(begin, reader.Offset() - begin);
        return {name, place, ParseElement(ToWide(xml).c_str())};
    } catch (const std::runtime_error& error) {
        Fail(place + ": " + error.what());
    }
}

/// Reads the properties that the provider reads. Sets `problem` if it cannot use the metric.
void ReadProperties(MetricConfiguration& metric, const std::vector<MetricConfiguration>& earlier)
{
    const std::string name = std::string("'").append(ToUtf8(metric.name)).append("'");
    const bool isKnown = metric.Is(kCrashMetric) || metric.Is(kLaminaMetric);
    const bool isDuplicate =
        std::ranges::any_of(earlier, [&](const auto& other) { return other.Is(metric.name.c_str()); });
    metric.isIgnored = !isKnown || isDuplicate;
    if (!isKnown) {
        metric.problem = "the provider has no metric " + name + " and ignores it; it serves " + ToUtf8(kCrashMetric) +
                         " and " + ToUtf8(kLaminaMetric);
    } else if (isDuplicate) {
        metric.problem = name + " is already subscribed; the first one counts";
    } else if (FAILED(GetProperty(metric.element.Get(), L"channel", nullptr, metric.channel))) {
        metric.problem = name + " has no <channel>; add one, such as <channel>Application</channel>";
    } else if (FAILED(GetProperty(metric.element.Get(), L"query", nullptr, metric.query))) {
        metric.problem = name + " has no <query>; add one, <query>*</query> takes every event of the channel";
    }
}

} // namespace

std::vector<MetricConfiguration> ReadConfiguration(const std::string& path)
{
    const std::string file = InputName(path);
    const std::string text = DecodeText(ReadInput(path, ExitCode::Configuration));
    try {
        std::vector<MetricConfiguration> metrics;
        replay::XmlReader reader(text);
        const bool hasRoot = reader.NextElement();
        const size_t root = reader.Offset();
        if (hasRoot && reader.Enter()) {
            while (reader.NextElement()) {
                MetricConfiguration metric = ReadMetric(reader, file);
                ReadProperties(metric, metrics);
                metrics.push_back(std::move(metric));
            }
        }
        reader.ExpectEnd();
        if (metrics.empty()) {
            Fail(Place(file, replay::PlaceOf(text, root)) +
                 ": no <metric> inside the root element; add one per subscription, see --help");
        }
        return metrics;
    } catch (const replay::TextError& error) {
        Fail(Place(file, error.place) + ": the XML is broken here (" + ToUtf8(error.reason) +
             "); close every tag, and write < and & in a query as &lt; and &amp;");
    }
}

} // namespace orvel::console
