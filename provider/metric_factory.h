#pragma once

#include <OrvelAgent.h>

#include <memory>
#include <string>

namespace orvel {

class CMetric;

/// Creates the metric called `name`, compared case-insensitively. Returns null for an unknown name. `logger` and `host`
/// may be null. Throws std::bad_alloc.
std::shared_ptr<CMetric> CreateMetric(const std::wstring& name, IAgentLogger* logger, IAgentHost* host);

} // namespace orvel
