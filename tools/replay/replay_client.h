#pragma once

#include "tools/replay/replay_control.h"

#include <stdexcept>
#include <string>

/// The replay log's control functions, found in the loaded stand-in.
struct ReplayClient {
    /// Loads the stand-in by its full path. Throws std::runtime_error when it is missing or is another wevtapi.dll.
    /// It stays loaded: a subscription may live as long as the process.
    explicit ReplayClient(const std::wstring& path) : module(LoadLibraryW(path.c_str()))
    {
        if (module == nullptr) {
            throw std::runtime_error("the replay log's wevtapi.dll cannot be loaded");
        }
        Find(Load, "ReplayLoad");
        Find(LoadText, "ReplayLoadText");
        Find(LoadBytes, "ReplayLoadBytes");
        Find(Count, "ReplayCount");
        Find(EntryTime, "ReplayEntryTime");
        Find(Judge, "ReplayJudge");
        Find(Play, "ReplayPlay");
        Find(Deliver, "ReplayDeliver");
        Find(DeliverError, "ReplayDeliverError");
        Find(SetMode, "ReplaySetMode");
        Find(Inject, "ReplayInject");
        Find(Reset, "ReplayReset");
        Find(Calls, "ReplayCalls");
        Find(OpenHandles, "ReplayOpenHandles");
        Find(ClosesInsideCallback, "ReplayClosesInsideCallback");
        Find(InvalidHandles, "ReplayInvalidHandles");
        Find(LastRefusal, "ReplayLastRefusal");
    }

    HMODULE module;
    decltype(&ReplayLoad) Load;
    decltype(&ReplayLoadText) LoadText;
    decltype(&ReplayLoadBytes) LoadBytes;
    decltype(&ReplayCount) Count;
    decltype(&ReplayEntryTime) EntryTime;
    decltype(&ReplayJudge) Judge;
    decltype(&ReplayPlay) Play;
    decltype(&ReplayDeliver) Deliver;
    decltype(&ReplayDeliverError) DeliverError;
    decltype(&ReplaySetMode) SetMode;
    decltype(&ReplayInject) Inject;
    decltype(&ReplayReset) Reset;
    decltype(&ReplayCalls) Calls;
    decltype(&ReplayOpenHandles) OpenHandles;
    decltype(&ReplayClosesInsideCallback) ClosesInsideCallback;
    decltype(&ReplayInvalidHandles) InvalidHandles;
    decltype(&ReplayLastRefusal) LastRefusal;

private:
    template <typename Function>
    void Find(Function& function, const char* name)
    {
        function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
        if (function == nullptr) {
            throw std::runtime_error(std::string("this wevtapi.dll is not the replay log: it has no ") + name);
        }
    }
};
