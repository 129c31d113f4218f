#pragma once

#include <OrvelAgent.h>

#include <memory>
#include <string>

namespace orvel {

class CMetric;

/// Creates the metric that a subscription metric name stands for, compared without regard to case. Empty for a name
/// that is not served. `logger` and `host` may be null. Throws std::bad_alloc.
std::shared_ptr<CMetric> CreateMetric(const std::wstring& name, IAgentLogger* logger, IAgentHost* host);

} // namespace orvel
