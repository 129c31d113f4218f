#pragma once

#include "host/unique_resource.h"

#include <windows.h>
#include <winevt.h>

namespace orvel {

/// Owner of an Event Log handle: a subscription, a render context or a publisher's metadata.
using EventHandle = std::unique_ptr<std::remove_pointer_t<EVT_HANDLE>, ReleaseWith<EvtClose>>;

} // namespace orvel
