#pragma once

#include "tools/function_of.h"
#include "tools/replay/replay_control.h"

#include <stdexcept>
#include <string>

/// The control functions of the replay log, which the constructor loads.
class ReplayClient {
protected:
    /// Converts to a pointer to the exported function of that name. Throws std::runtime_error.
    struct Control {
        HMODULE module;
        const char* name;

        template <typename Function>
        operator Function*() const
        {
            Function* const function = orvel::FunctionOf{module, name};
            if (function == nullptr) {
                throw std::runtime_error(
                    module == nullptr ? "the replay log's wevtapi.dll cannot be loaded"
                                      : std::string("this wevtapi.dll is not the replay log: it has no ") + name);
            }
            return function;
        }
    };

public:
    /// `path`: the full path of the replay log's wevtapi.dll. Throws std::runtime_error if it cannot be loaded or is
    /// another wevtapi.dll. It is never unloaded, since a subscription can stay open until the process ends.
    explicit ReplayClient(const std::wstring& path) : module(LoadLibraryW(path.c_str())) {}

    HMODULE module;
    decltype(&ReplayLoad) Load = Control{module, "ReplayLoad"};
    decltype(&ReplayLoadBytes) LoadBytes = Control{module, "ReplayLoadBytes"};
    decltype(&ReplayDeclare) Declare = Control{module, "ReplayDeclare"};
    decltype(&ReplayCount) Count = Control{module, "ReplayCount"};
    decltype(&ReplayEntryTime) EntryTime = Control{module, "ReplayEntryTime"};
    decltype(&ReplayEvaluateQuery) EvaluateQuery = Control{module, "ReplayEvaluateQuery"};
    decltype(&ReplayPlay) Play = Control{module, "ReplayPlay"};
    decltype(&ReplayWaitForDeliveries) WaitForDeliveries = Control{module, "ReplayWaitForDeliveries"};
    decltype(&ReplayObserve) Observe = Control{module, "ReplayObserve"};
    decltype(&ReplayDeliver) Deliver = Control{module, "ReplayDeliver"};
    decltype(&ReplayDeliverError) DeliverError = Control{module, "ReplayDeliverError"};
    decltype(&ReplaySetMode) SetMode = Control{module, "ReplaySetMode"};
    decltype(&ReplayOpenHandles) OpenHandles = Control{module, "ReplayOpenHandles"};
    decltype(&ReplayInvalidHandles) InvalidHandles = Control{module, "ReplayInvalidHandles"};
    decltype(&ReplayLastRefusal) LastRefusal = Control{module, "ReplayLastRefusal"};
};
