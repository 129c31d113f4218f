#pragma once

#include <windows.h>
#include <OrvelAgent.h>
#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

/// A host object on the stack of its test. It counts references instead of ending with the last one, and fails the test
/// when one is left at its end. Any thread may call it.
template <typename Interface>
class HostFake : public Interface {
public:
    HostFake() = default;
    HostFake(const HostFake&) = delete;
    HostFake& operator=(const HostFake&) = delete;
    virtual ~HostFake() { EXPECT_EQ(references.load(), 0) << "references that were never given back"; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override
    {
        const bool known =
            IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IDispatch) || IsEqualIID(iid, __uuidof(Interface));
        *out = known ? static_cast<Interface*>(this) : nullptr;
        return known ? (AddRef(), S_OK) : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override
    {
        ++taken;
        return static_cast<ULONG>(++references);
    }
    ULONG STDMETHODCALLTYPE Release() override
    {
        const long left = --references;
        if (onRelease) {
            onRelease();
        }
        return static_cast<ULONG>(left);
    }
    HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override
    {
        return E_NOTIMPL;
    }

    std::atomic<long> references = 0;
    std::atomic<long> taken = 0; // references ever taken
    std::function<void()> onRelease;
};

/// Lines received on any thread, in order.
class Record {
public:
    void Add(std::wstring line)
    {
        const std::lock_guard guard(lock_);
        lines_.push_back(std::move(line));
    }
    /// Gives the lines received so far and forgets them.
    std::vector<std::wstring> Take()
    {
        const std::lock_guard guard(lock_);
        return std::exchange(lines_, {});
    }

private:
    std::mutex lock_;
    std::vector<std::wstring> lines_;
};

/// Records each line as "E text", "W text" or "I text".
class RecordingLogger : public HostFake<IAgentLogger> {
public:
    HRESULT STDMETHODCALLTYPE Reserved7() override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE GetLogLevels(LPWSTR category, LONG* mask) override
    {
        EXPECT_STREQ(category, L"eventlog");
        EXPECT_EQ(*mask, 0) << "the mask must be zeroed before it is asked for";
        ++asked;
        *mask = levels;
        return E_FAIL; // the caller must not care
    }
    HRESULT STDMETHODCALLTYPE LogError(BSTR category, BSTR text) override { return Add(L"E ", category, text); }
    HRESULT STDMETHODCALLTYPE LogWarning(BSTR category, BSTR text) override { return Add(L"W ", category, text); }
    HRESULT STDMETHODCALLTYPE LogInfo(BSTR category, BSTR text) override { return Add(L"I ", category, text); }

    std::atomic<LONG> levels = 7;
    std::atomic<int> asked = 0;
    Record lines;
    std::function<void(const std::wstring& line)> onLine; // called with each line, on the logging thread

private:
    HRESULT Add(const wchar_t* level, BSTR category, BSTR text)
    {
        EXPECT_STREQ(category, L"eventlog");
        const std::wstring line = level + std::wstring(text, SysStringLen(text));
        lines.Add(line);
        if (onLine) {
            onLine(line);
        }
        return E_FAIL; // the caller must not care
    }
    static HRESULT Unexpected()
    {
        ADD_FAILURE() << "a slot was called that this module has no business with";
        return E_NOTIMPL;
    }
};

/// Records each value as "key [instance] = text", numbers as "#123", refused ones too; gives the scripted results in
/// turn and S_OK after the last.
class RecordingSink : public HostFake<IMetricSink> {
public:
    HRESULT STDMETHODCALLTYPE Reserved7() override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE Reserved8() override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE Reserved9() override { return Unexpected(); }
    HRESULT STDMETHODCALLTYPE WriteMetric(BSTR key, BSTR instance, VARIANT value) override
    {
        std::wstring text;
        if (value.vt == VT_BSTR) {
            text.assign(value.bstrVal, SysStringLen(value.bstrVal));
        } else {
            EXPECT_EQ(value.vt, VT_UI8);
            text = L"#" + std::to_wstring(value.ullVal);
        }
        const std::wstring line =
            std::wstring(key) + L" [" + (instance != nullptr ? instance : L"(null)") + L"] = " + text;
        values.Add(line);
        if (onValue) {
            onValue(line);
        }
        const std::lock_guard guard(lock_);
        if (results.empty()) {
            return S_OK;
        }
        const HRESULT hr = results.front();
        results.pop_front();
        return hr;
    }

    Record values;
    std::deque<HRESULT> results; // set while nothing is collecting
    std::function<void(const std::wstring& line)> onValue;

private:
    static HRESULT Unexpected()
    {
        ADD_FAILURE() << "a slot was called that this module has no business with";
        return E_NOTIMPL;
    }
    std::mutex lock_;
};

class HostObject : public HostFake<IAgentHost> {};
