#pragma once

#include "tools/replay/query.h"

#include <windows.h>
#include <winevt.h>

#include <vector>

namespace orvel::replay {

/// The path and type of a value in a render context. The constructor throws Refusal.
struct ValuePath {
    explicit ValuePath(std::wstring_view path);

    Query query;
    EVT_VARIANT_TYPE type;
};

using RenderContext = std::vector<ValuePath>;

/// Renders an event's values into `buffer` as EvtRender lays them out: one EVT_VARIANT per path, in path order, then
/// the texts that they point to. A value that is absent or cannot be converted to its type is a null variant. Returns
/// the number of bytes needed; if it exceeds `size`, nothing is written.
size_t RenderValues(const RenderContext& context, const Event& event, void* buffer, size_t size);

} // namespace orvel::replay
