#include "tools/console/configuration.h"

#include "host/bstr.h"
#include "host/property.h"
#include "tools/console/input.h"
#include "tools/console/text.h"
#include "tools/function_of.h"

#include <shlwapi.h>
#include <xmllite.h>

#include <algorithm>
#include <span>
#include <utility>

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

// MSXML knows no places in a good document and some versions none in a bad one, so a streaming reader goes first: it
// checks the form and notes where each metric stands.
class FormReader {
public:
    FormReader(IStream* source, std::string file) : file_(std::move(file))
    {
        const HMODULE library = LoadLibraryExW(L"xmllite.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
        decltype(&CreateXmlReader) const create = FunctionOf{library, "CreateXmlReader"};
        if (create == nullptr) {
            Fail("the system's xmllite.dll is missing");
        }
        Check(create(__uuidof(IXmlReader), reinterpret_cast<void**>(reader_.GetAddressOf()), nullptr), file_,
              "no XML reader");
        Check(reader_->SetInput(source), file_, "cannot be read");
    }

    std::vector<MetricConfiguration> Read()
    {
        XmlNodeType type = XmlNodeType_None;
        HRESULT hr = S_OK;
        while ((hr = reader_->Read(&type)) == S_OK) {
            if (type == XmlNodeType_Element) {
                const bool isEmpty = reader_->IsEmptyElement();
                ReadElement();
                depth_ += isEmpty ? 0 : 1;
            } else if (type == XmlNodeType_EndElement) {
                --depth_;
            }
        }
        if (FAILED(hr)) {
            Fail(Place() + ": the XML is broken here (" + Describe(hr) +
                 "); close every tag, and write < and & in a query as &lt; and &amp;");
        }
        if (metrics_.empty()) {
            Fail(Place() + ": no <metric> inside the root element; add one per subscription, see --help");
        }
        return std::move(metrics_);
    }

private:
    void ReadElement()
    {
        const wchar_t* local = nullptr;
        reader_->GetLocalName(&local, nullptr);
        const std::wstring tag = local;
        const std::string place = Place();
        if (depth_ == 1) {
            const wchar_t* name = L"";
            if (reader_->MoveToAttributeByName(L"name", nullptr) == S_OK) {
                reader_->GetValue(&name, nullptr);
            }
            if (tag != L"metric" || *name == L'\0') {
                Fail(place + ": <" + ToUtf8(tag) + "> is not a metric with a name; write <metric name=\"...\">");
            }
            metrics_.push_back({name, place});
        } else if (depth_ == 2) {
            property_ = tag;
        } else if (depth_ > 2 && (property_ == L"query" || property_ == L"channel")) {
            Fail(place + ": <" + ToUtf8(property_) +
                 "> must hold text alone; put <![CDATA[ and ]]> around a query "
                 "that is XML itself");
        }
    }

    std::string Place()
    {
        UINT line = 0;
        UINT column = 0;
        reader_->GetLineNumber(&line);
        reader_->GetLinePosition(&column);
        return file_ + ":" + std::to_string(std::max(line, 1U)) + ":" + std::to_string(std::max(column, 1U));
    }

    std::string file_;
    ComPtr<IXmlReader> reader_;
    std::vector<MetricConfiguration> metrics_;
    std::wstring property_;
    int depth_ = 0;
};

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

/// Reads what the provider will ask for, and tells what it would stumble over.
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
    ComPtr<IStream> stream;
    stream.Attach(SHCreateMemStream(reinterpret_cast<const BYTE*>(bytes.data()), static_cast<UINT>(bytes.size())));
    Check(stream ? S_OK : E_OUTOFMEMORY, file, "cannot be held in memory");
    std::vector<MetricConfiguration> metrics = FormReader(stream.Get(), file).Read();
    Check(stream->Seek({}, STREAM_SEEK_SET, nullptr), file, "cannot be read twice");
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
              metric.place, "MSXML gives no element");
        FindProblem(metric, {metrics.data(), i});
    }
    return metrics;
}

} // namespace orvel::console
