#pragma once

#include "tools/replay/query.h"

#include <windows.h>
#include <winevt.h>

#include <vector>

namespace orvel::replay {

/// One value that a render context asks for: where it stands and how it is typed.
struct ValuePath {
    explicit ValuePath(std::wstring_view path);

    Query query;
    EVT_VARIANT_TYPE type;
};

using RenderContext = std::vector<ValuePath>;

/// Renders an event's values into `buffer` as EvtRender lays them out: one EVT_VARIANT per path, in path order, then
/// the texts that they point to. A value that is absent, or is no number or time where one belongs, is a null variant.
/// Gives the bytes needed; writes nothing when `size` is less.
size_t RenderValues(const RenderContext& context, const Event& event, void* buffer, size_t size);

} // namespace orvel::replay
