#include "host/format.h"
#include "tools/console/text.h"
#include "tools/console/writers.h"

namespace orvel::console {

std::string Quote(const std::wstring& text)
{
    std::wstring quoted = L"\"";
    for (size_t i = 0; i < text.size(); ++i) {
        const wchar_t unit = text[i];
        if (unit == L'"' || unit == L'\\') {
            quoted.append({L'\\', unit});
        } else if (unit == L'\r' || unit == L'\n' || unit == L'\t') {
            quoted.append({L'\\', unit == L'\r' ? L'r' : unit == L'\n' ? L'n' : L't'});
        } else if (IS_HIGH_SURROGATE(unit) && i + 1 < text.size() && IS_LOW_SURROGATE(text[i + 1])) {
            quoted.append({unit, text[++i]});
        } else if (unit < 0x20 || IS_HIGH_SURROGATE(unit) || IS_LOW_SURROGATE(unit)) {
            quoted += FormatString(L"\\u%04x", static_cast<unsigned>(unit));
        } else {
            quoted += unit;
        }
    }
    return ToUtf8(quoted + L'"');
}

std::string ToJsonLines(const Collection& collection)
{
    std::string lines;
    for (const MetricValue& value : collection.values) {
        const bool isText = value.type == VT_BSTR;
        lines += "{\"collection\":" + std::to_string(collection.number) + ",\"metric\":" + Quote(collection.metric) +
                 ",\"key\":" + Quote(value.key) + ",\"instance\":" + Quote(value.instance) + ",\"type\":\"" +
                 (isText ? "VT_BSTR" : "VT_UI8") +
                 "\",\"value\":" + (isText ? Quote(value.text) : std::to_string(value.number)) + "}\n";
    }
    return lines;
}

} // namespace orvel::console
