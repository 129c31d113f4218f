#include "host/format.h"
#include "tools/console/writers.h"
#include "tools/utf8.h"

namespace orvel::console {

std::string Quote(std::wstring_view text)
{
    constexpr std::wstring_view kEscaped = L"\"\\\r\n\t";
    constexpr std::wstring_view kEscapes = L"\"\\rnt";
    std::wstring json = L"\"";
    for (size_t i = 0; i < text.size(); ++i) {
        const wchar_t unit = text[i];
        const size_t escape = kEscaped.find(unit);
        if (escape != kEscaped.npos) {
            json.append({L'\\', kEscapes[escape]});
        } else if (IS_HIGH_SURROGATE(unit) && i + 1 < text.size() && IS_LOW_SURROGATE(text[i + 1])) {
            json.append({unit, text[++i]});
        } else if (unit < 0x20 || IS_HIGH_SURROGATE(unit) || IS_LOW_SURROGATE(unit)) {
            json += FormatString(L"\\u%04x", static_cast<unsigned>(unit));
        } else {
            json += unit;
        }
    }
    return ToUtf8(json += L'"');
}

std::string ToJsonLines(const Collection& collection)
{
    const std::string start =
        "{\"collection\":" + std::to_string(collection.number) + ",\"metric\":" + Quote(collection.metric);
    std::string lines;
    for (const MetricValue& value : collection.values) {
        lines += start + ",\"key\":" + Quote(value.key) + ",\"instance\":" + Quote(value.instance);
        lines += value.type == VT_BSTR ? ",\"type\":\"VT_BSTR\",\"value\":" + Quote(value.text)
                                       : ",\"type\":\"VT_UI8\",\"value\":" + std::to_string(value.number);
        lines += "}\n";
    }
    return lines;
}

} // namespace orvel::console
