#pragma once

#include "tests/support/host_fakes.h"
#include "tools/replay/replay_client.h"

#include <windows.h>
#include <OrvelAgent.h>
#include <msxml2.h>
#include <winevt.h>
#include <wrl/client.h>

#include <string>

using Microsoft::WRL::ComPtr;

// {DAF69464-F4E2-40C0-BCC3-A30E819975F0}
inline constexpr CLSID kProviderClass = {0xDAF69464, 0xF4E2, 0x40C0, {0xBC, 0xC3, 0xA3, 0x0E, 0x81, 0x99, 0x75, 0xF0}};

/// A BSTR of a test's text, null for a null text.
class Bstr {
public:
    Bstr(const wchar_t* text) : text_(SysAllocString(text)) {}
    Bstr(const std::wstring& text) : Bstr(text.c_str()) {}
    ~Bstr() { SysFreeString(text_); }
    Bstr(const Bstr&) = delete;
    Bstr& operator=(const Bstr&) = delete;
    operator BSTR() const { return text_; }

private:
    BSTR text_;
};

/// The replay log that stands in for the Event Log in this process; loaded on first use.
ReplayClient& Replay();

/// Reads the log's future from the text of an export; fails the test with the place when it cannot be read.
void LoadEvents(const std::wstring& xml);

/// One event of an export, as the "Application Error" publisher writes it to channel Application.
std::wstring CrashEvent(const std::wstring& message, const std::wstring& time = L"2024-03-05T07:08:09.123Z");

/// Parses a configuration element with the system's MSXML.
ComPtr<IXMLDOMElement> ParseElement(const wchar_t* xml);

/// The configuration of a subscription to every event of channel Application.
ComPtr<IXMLDOMElement> EveryEvent();

/// The suffix of an error line, built with the system's text for the code.
std::wstring ExpectedSuffix(HRESULT code);

/// The built Orvel_eventlog.dll, loaded for the life of this object, over the replay log in its initial state.
class ModuleUnderTest {
public:
    ModuleUnderTest();
    ~ModuleUnderTest();
    ModuleUnderTest(const ModuleUnderTest&) = delete;
    ModuleUnderTest& operator=(const ModuleUnderTest&) = delete;

    HMODULE handle() const { return handle_; }
    /// DllGetClassObject, with the provider's class unless another is named.
    HRESULT GetClassObject(REFIID iid, void** out, REFCLSID classId = kProviderClass) const;
    ComPtr<IOrvelDataProvider> CreateProvider() const;
    /// What DllCanUnloadNow gives; waits a little for an S_OK that closings on other threads may delay.
    HRESULT CanUnload() const;
    /// An exported function by name, null when there is none.
    template <typename Function>
    Function* Export(const char* name) const
    {
        return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(handle_, name)));
    }

private:
    HMODULE handle_;
};

/// Makes the module call a test's function in place of an imported one, for the life of this object.
class ImportPatch {
public:
    /// Fails the test when the module imports no function `name`. `original`, when given, gets the real one.
    template <typename Function>
    ImportPatch(const ModuleUnderTest& module, const char* name, Function* replacement, Function** original = nullptr)
        : slot_(FindSlot(module.handle(), name))
    {
        if (slot_ != nullptr) {
            original_ = Exchange(reinterpret_cast<void*>(replacement));
            if (original != nullptr) {
                *original = reinterpret_cast<Function*>(original_);
            }
        }
    }
    ~ImportPatch()
    {
        if (slot_ != nullptr) {
            Exchange(original_);
        }
    }
    ImportPatch(const ImportPatch&) = delete;
    ImportPatch& operator=(const ImportPatch&) = delete;

private:
    static void** FindSlot(HMODULE module, const char* name);
    void* Exchange(void* function);

    void** slot_;
    void* original_ = nullptr;
};
