#include "tools/console/configuration.h"

#include "host/bstr.h"
#include "host/property.h"
#include "tools/console/failure.h"
#include "tools/console/input.h"
#include "tools/replay/xml_reader.h"
#include "tools/utf8.h"

#include <shlwapi.h>

#include <algorithm>
#include <span>

namespace orvel::console {

using Microsoft::WRL::ComPtr;

namespace {

[[noreturn]] void Fail(const std::string& text)
{
    throw Failure(ExitCode::Configuration, text);
}

void Check(HRESULT hr, const std::string& file, const char* what)
{
    if (FAILED(hr)) {
        Fail(file + ": " + what + ": " + Describe(hr));
    }
}

std::string Place(const std::string& file, size_t line, size_t column)
{
    return file + ":" + std::to_string(line) + ":" + std::to_string(column);
}

/// Reads a metric's name and place, and checks what MSXML would accept and the provider misread.
MetricConfiguration ReadMetric(const replay::Node& element, const std::string& file)
{
    const std::string place = Place(file, element.nameLine, element.nameColumn);
    const std::wstring_view* const name = element.Attribute(L"name");
    if (element.name != L"metric" || name == nullptr || name->empty()) {
        Fail(place + ": <" + ToUtf8(element.name) + "> is not a metric with a name; write <metric name=\"...\">");
    }
    for (const replay::Node& property : element.Children()) {
        if ((property.name == L"query" || property.name == L"channel") && property.childCount != 0) {
            const replay::Node& child = *property.firstChild;
            Fail(Place(file, child.nameLine, child.nameColumn) + ": <" + ToUtf8(property.name) +
                 "> must hold text alone; put <![CDATA[ and ]]> around a query that is XML itself");
        }
    }
    return {std::wstring(*name), place};
}

// MSXML reports no places, so our reader checks the document first.
std::vector<MetricConfiguration> ReadMetrics(const std::string& text, const std::string& file)
try {
    std::vector<MetricConfiguration> metrics;
    replay::XmlReader reader(text);
    if (reader.NextElement() && reader.Enter()) {
        replay::Arena arena;
        while (reader.NextElement()) {
            metrics.push_back(ReadMetric(reader.Read(arena), file));
        }
    }
    reader.ExpectEnd();
    if (metrics.empty()) {
        Fail(Place(file, reader.Place().line, reader.Place().column) +
             ": no <metric> inside the root element; add one per subscription, see --help");
    }
    return metrics;
} catch (const replay::TextError& error) {
    Fail(Place(file, error.line, error.column) + ": the XML is broken here (" + ToUtf8(error.reason) +
         "); close every tag, and write < and & in a query as &lt; and &amp;");
}

ComPtr<IXMLDOMElement> ParseRoot(IStream* stream, const std::string& file)
{
    CLSID documentClass{};
    ComPtr<IXMLDOMDocument> document;
    Check(CLSIDFromProgID(L"Msxml2.DOMDocument.6.0", &documentClass), file, "MSXML 6 is not installed");
    Check(CoCreateInstance(documentClass, nullptr, CLSCTX_INPROC_SERVER, IID_IXMLDOMDocument,
                           reinterpret_cast<void**>(document.GetAddressOf())),
          file, "MSXML 6 cannot be created");
    Check(document->put_async(VARIANT_FALSE), file, "MSXML cannot be set up");
    VARIANT source{};
    source.vt = VT_UNKNOWN;
    source.punkVal = stream; // only lent
    VARIANT_BOOL isGood = VARIANT_FALSE;
    ComPtr<IXMLDOMElement> root;
    if (FAILED(document->load(source, &isGood)) || isGood == VARIANT_FALSE ||
        document->get_documentElement(root.GetAddressOf()) != S_OK) {
        Fail(file + ":1:1: MSXML rejects the document; check that its encoding is what its first line says");
    }
    return root;
}

/// Reads what the provider will ask for, and notes what it cannot use.
void FindProblem(MetricConfiguration& metric, std::span<const MetricConfiguration> earlier)
{
    const std::string name = std::string("'").append(ToUtf8(metric.name)).append("'");
    const auto isSame = [&](const MetricConfiguration& other) { return other.Is(metric.name.c_str()); };
    metric.isIgnored = true;
    if (!metric.Is(kCrashMetric) && !metric.Is(kLaminaMetric)) {
        metric.problem = "the provider has no metric " + name + " and ignores it; it serves " + ToUtf8(kCrashMetric) +
                         " and " + ToUtf8(kLaminaMetric);
        return;
    }
    if (std::any_of(earlier.begin(), earlier.end(), isSame)) {
        metric.problem = name + " is already subscribed; the first one counts";
        return;
    }
    metric.isIgnored = false;
    if (FAILED(GetProperty(metric.element.Get(), L"channel", nullptr, metric.channel))) {
        metric.problem = name + " has no <channel>; add one, such as <channel>Application</channel>";
    } else if (FAILED(GetProperty(metric.element.Get(), L"query", nullptr, metric.query))) {
        metric.problem = name + " has no <query>; add one, <query>*</query> takes every event of the channel";
    }
}

} // namespace

std::vector<MetricConfiguration> ReadConfiguration(const std::wstring& path)
{
    const std::string file = InputName(path);
    const std::string bytes = ReadInput(path, ExitCode::Configuration);
    std::vector<MetricConfiguration> metrics = ReadMetrics(DecodeText(bytes), file);
    ComPtr<IStream> stream;
    stream.Attach(SHCreateMemStream(reinterpret_cast<const BYTE*>(bytes.data()), static_cast<UINT>(bytes.size())));
    Check(stream ? S_OK : E_OUTOFMEMORY, file, "cannot be held in memory");
    const ComPtr<IXMLDOMElement> root = ParseRoot(stream.Get(), file);

    ComPtr<IXMLDOMNodeList> elements;
    Check(root->selectNodes(MakeBstr(L"metric").get(), elements.GetAddressOf()), file, "MSXML cannot read it");
    for (size_t i = 0; i < metrics.size(); ++i) {
        MetricConfiguration& metric = metrics[i];
        ComPtr<IXMLDOMNode> node;
        if (elements->nextNode(node.GetAddressOf()) != S_OK) {
            Fail(metric.place + ": MSXML finds no such <metric>; leave XML namespaces out");
        }
        Check(node->QueryInterface(IID_IXMLDOMElement, reinterpret_cast<void**>(metric.element.GetAddressOf())),
              metric.place, "MSXML returns no element");
        FindProblem(metric, {metrics.data(), i});
    }
    return metrics;
}

} // namespace orvel::console
