#include "tools/replay/xml_reader.h"

#include <windows.h>
#include <msxml2.h>
#include <ole2.h>
#include <oleauto.h>
#include <wrl/client.h>

#include <algorithm>
#include <new>
#include <thread>

namespace orvel::replay {

namespace {

constexpr size_t kDeepest = 64;
// Not in mingw's import libraries.
constexpr IID kIidReader = {0xA4F96ED0, 0xF829, 0x476E, {0x81, 0xC0, 0xCD, 0xC7, 0xBD, 0x2A, 0x08, 0x02}};

std::wstring_view View(const wchar_t* text, int count)
{
    return {text, static_cast<size_t>(count)};
}

/// Builds the tree from the parser's calls. Lives on the stack of the one who parses: counting references is idle.
class TreeBuilder : public ISAXContentHandler, public ISAXErrorHandler {
public:
    Node root; // a parent of the document's element
    TextError problem{1, 1, {}};

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** object) override
    {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }

    HRESULT STDMETHODCALLTYPE putDocumentLocator(ISAXLocator* locator) override
    {
        locator_ = locator;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE startElement(const wchar_t* uri, int uriCount, const wchar_t* name, int nameCount,
                                           const wchar_t*, int, ISAXAttributes* attributes) override
    try {
        Node node;
        node.name = LocalName(View(uri, uriCount), View(name, nameCount));
        Locate(locator_, node.line, node.column);
        if (open_.size() > kDeepest) {
            problem = {node.line, node.column, L"elements nest too deep"};
            return E_FAIL;
        }
        int count = 0;
        attributes->getLength(&count);
        for (int i = 0; i < count; ++i) {
            const wchar_t *attributeUri = nullptr, *local = nullptr, *qualified = nullptr, *value = nullptr;
            int uriSize = 0, localSize = 0, qualifiedSize = 0, valueSize = 0;
            attributes->getName(i, &attributeUri, &uriSize, &local, &localSize, &qualified, &qualifiedSize);
            attributes->getValue(i, &value, &valueSize);
            if (!View(qualified, qualifiedSize).starts_with(L"xmlns")) {
                node.attributes.emplace_back(LocalName(View(attributeUri, uriSize), View(local, localSize)),
                                             View(value, valueSize));
            }
        }
        auto& siblings = open_.back()->children;
        siblings.push_back(std::move(node));
        open_.push_back(&siblings.back());
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }

    HRESULT STDMETHODCALLTYPE endElement(const wchar_t*, int, const wchar_t*, int, const wchar_t*, int) override
    {
        open_.pop_back();
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE characters(const wchar_t* text, int count) override
    try {
        // A parser gives LF for every line end, whatever the file has; CRs written as references are told apart no
        // more.
        for (const wchar_t c : View(text, count)) {
            std::wstring& all = open_.back()->text;
            if (c == L'\n' && !all.empty() && all.back() == L'\r') {
                all.pop_back();
            }
            all += c;
        }
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }

    HRESULT STDMETHODCALLTYPE fatalError(ISAXLocator* locator, const wchar_t* text, HRESULT) override
    {
        if (problem.reason.empty()) {
            Locate(locator, problem.line, problem.column);
            problem.reason = text != nullptr ? text : L"";
            problem.reason.erase(problem.reason.find_last_not_of(L" \r\n") + 1);
        }
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE error(ISAXLocator*, const wchar_t*, HRESULT) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE ignorableWarning(ISAXLocator*, const wchar_t*, HRESULT) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE startDocument() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE endDocument() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE startPrefixMapping(const wchar_t*, int, const wchar_t*, int) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE endPrefixMapping(const wchar_t*, int) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE ignorableWhitespace(const wchar_t*, int) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE processingInstruction(const wchar_t*, int, const wchar_t*, int) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE skippedEntity(const wchar_t*, int) override { return S_OK; }

private:
    static std::wstring LocalName(std::wstring_view uri, std::wstring_view name)
    {
        return std::wstring(uri == kReplayNamespace ? kReplayPrefix : std::wstring_view()).append(name);
    }

    static void Locate(ISAXLocator* locator, size_t& line, size_t& column)
    {
        int lineNumber = 0, columnNumber = 0;
        if (locator != nullptr && SUCCEEDED(locator->getLineNumber(&lineNumber)) &&
            SUCCEEDED(locator->getColumnNumber(&columnNumber))) {
            line = static_cast<size_t>(std::max(lineNumber, 1));
            column = static_cast<size_t>(std::max(columnNumber, 1));
        }
    }

    ISAXLocator* locator_ = nullptr;
    std::vector<Node*> open_{&root};
};

/// The text as a UTF-16 stream. Parsed as one string, Wine's MSXML gives up somewhere beyond 20 MB.
HRESULT MakeStream(std::wstring_view text, IStream** stream)
{
    constexpr wchar_t kByteOrderMark = 0xFEFF;
    Microsoft::WRL::ComPtr<IStream> memory;
    HRESULT hr = CreateStreamOnHGlobal(nullptr, TRUE, memory.GetAddressOf());
    if (SUCCEEDED(hr)) {
        hr = memory->Write(&kByteOrderMark, sizeof(kByteOrderMark), nullptr);
    }
    if (SUCCEEDED(hr)) {
        hr = memory->Write(text.data(), static_cast<ULONG>(text.size() * sizeof(wchar_t)), nullptr);
    }
    if (SUCCEEDED(hr)) {
        hr = memory->Seek({}, STREAM_SEEK_SET, nullptr);
    }
    *stream = memory.Detach();
    return hr;
}

void Parse(std::wstring_view text, TreeBuilder& builder)
{
    CLSID readerClass{};
    Microsoft::WRL::ComPtr<ISAXXMLReader> reader;
    HRESULT hr = CLSIDFromProgID(L"Msxml2.SAXXMLReader.3.0", &readerClass);
    if (SUCCEEDED(hr)) {
        hr = CoCreateInstance(readerClass, nullptr, CLSCTX_INPROC_SERVER, kIidReader,
                              reinterpret_cast<void**>(reader.GetAddressOf()));
    }
    if (FAILED(hr)) {
        builder.problem.reason = L"MSXML 3 cannot be created";
        return;
    }
    Microsoft::WRL::ComPtr<IStream> source;
    hr = MakeStream(text, source.GetAddressOf());
    if (FAILED(hr)) {
        builder.problem.reason = L"not enough memory";
        return;
    }
    reader->putContentHandler(&builder);
    reader->putErrorHandler(&builder);
    VARIANT input{};
    input.vt = VT_UNKNOWN;
    input.punkVal = source.Get();
    hr = reader->parse(input);
    if (FAILED(hr) && builder.problem.reason.empty()) {
        builder.problem.reason = hr == E_OUTOFMEMORY ? L"not enough memory" : L"the XML is not well-formed";
    }
    reader->putContentHandler(nullptr);
    reader->putErrorHandler(nullptr);
}

} // namespace

Node ReadXml(std::wstring_view text)
{
    TreeBuilder builder;
    // The text is decoded already; a declaration would have the parser decode it once more.
    if (text.starts_with(L"<?xml ")) {
        text.remove_prefix(std::min(text.size(), text.find(L"?>") + 2));
    }
    std::thread([&] {
        if (SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {
            Parse(text, builder);
            CoUninitialize();
        }
    }).join();
    if (builder.root.children.size() != 1 && builder.problem.reason.empty()) {
        builder.problem.reason = L"there is no XML element";
    }
    if (!builder.problem.reason.empty()) {
        throw std::move(builder.problem);
    }
    return std::move(builder.root.children.front());
}

} // namespace orvel::replay
