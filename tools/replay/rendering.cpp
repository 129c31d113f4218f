#include "tools/replay/rendering.h"

#include <algorithm>
#include <span>

namespace orvel::replay {

namespace {

/// Returns the documented type (EVT_SYSTEM_PROPERTY_ID page). Everything else is a text, including Guid and UserID,
/// which are binary on Windows.
EVT_VARIANT_TYPE TypeOf(std::wstring_view path)
{
    constexpr std::pair<std::wstring_view, EVT_VARIANT_TYPE> kTypes[] = {
        {L"/System/EventID", EvtVarTypeUInt16},
        {L"/System/EventID/@Qualifiers", EvtVarTypeUInt16},
        {L"/System/Version", EvtVarTypeByte},
        {L"/System/Level", EvtVarTypeByte},
        {L"/System/Task", EvtVarTypeUInt16},
        {L"/System/Opcode", EvtVarTypeByte},
        {L"/System/Keywords", EvtVarTypeHexInt64},
        {L"/System/TimeCreated/@SystemTime", EvtVarTypeFileTime},
        {L"/System/EventRecordID", EvtVarTypeUInt64},
        {L"/System/Execution/@ProcessID", EvtVarTypeUInt32},
        {L"/System/Execution/@ThreadID", EvtVarTypeUInt32},
    };
    path.remove_prefix(std::min(path.find(L'/'), path.size())); // the first step is Event or *
    const auto* const found = std::ranges::find(kTypes, path, [](const auto& entry) { return entry.first; });
    return found != std::end(kTypes) ? found->second : EvtVarTypeString;
}

uint64_t LargestOf(EVT_VARIANT_TYPE type)
{
    switch (type) {
    case EvtVarTypeByte:
        return 0xFF;
    case EvtVarTypeUInt16:
        return 0xFFFF;
    case EvtVarTypeUInt32:
        return 0xFFFFFFFF;
    default:
        return ~uint64_t{0};
    }
}

EVT_VARIANT MakeNumber(EVT_VARIANT_TYPE type, std::wstring_view text)
{
    EVT_VARIANT variant{};
    if (type == EvtVarTypeFileTime) {
        const auto time = ParseEventTime(text);
        variant.Type = time ? EvtVarTypeFileTime : EvtVarTypeNull;
        variant.FileTimeVal = time.value_or(0);
        return variant;
    }
    const auto number = ParseWholeNumber(text);
    if (number && !number->isNegative && number->whole <= LargestOf(type)) {
        variant.Type = static_cast<DWORD>(type);
        variant.UInt64Val = number->whole; // little-endian: the narrower members share its low bytes
    }
    return variant;
}

} // namespace

ValuePath::ValuePath(std::wstring_view path) : query(Query::ParseValuePath(path)), type(TypeOf(query.PlainPath())) {}

size_t RenderValues(const RenderContext& context, const Event& event, void* buffer, size_t size)
{
    std::vector<EVT_VARIANT> variants;
    std::wstring texts;
    // A number, since the buffer may be null.
    const auto address = reinterpret_cast<uintptr_t>(buffer) + context.size() * sizeof(EVT_VARIANT);
    for (const auto& [query, type] : context) {
        const auto text = query.FirstValue(event.xml);
        EVT_VARIANT variant{};
        if (text && type == EvtVarTypeString) {
            variant.Type = EvtVarTypeString;
            variant.StringVal = reinterpret_cast<const wchar_t*>(address + texts.size() * sizeof(wchar_t));
            texts.append(*text).push_back(L'\0');
        } else if (text) {
            variant = MakeNumber(type, *text);
        }
        variants.push_back(variant);
    }
    const auto variantBytes = std::as_bytes(std::span(variants));
    const auto textBytes = std::as_bytes(std::span(texts));
    const size_t needed = variantBytes.size() + textBytes.size();
    if (size >= needed) {
        const auto textStart = std::ranges::copy(variantBytes, static_cast<std::byte*>(buffer)).out;
        std::ranges::copy(textBytes, textStart);
    }
    return needed;
}

} // namespace orvel::replay
