#pragma once

#include "tools/host_object.h"

#include <windows.h>
#include <OrvelAgent.h>
#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

using Lines = std::vector<std::wstring>;

/// A host object on the stack of its test. Fails the test if a reference is left when it is destroyed. Records its
/// calls as lines. Any thread may call it.
template <typename Interface>
class HostFake : public orvel::HostObject<Interface> {
public:
    virtual ~HostFake() { EXPECT_EQ(this->References(), 0U) << "references that were never released"; }

    ULONG STDMETHODCALLTYPE Release() override
    {
        if (onRelease) {
            onRelease();
        }
        return orvel::HostObject<Interface>::Release();
    }

    /// Returns the lines recorded so far and forgets them.
    Lines Take()
    {
        const std::lock_guard guard(lock_);
        return std::exchange(lines_, {});
    }

    std::function<void()> onRelease;
    std::function<void()> onNextLine; // called once, on the thread that adds the line

protected:
    void Keep(const std::wstring& line)
    {
        std::function<void()> call;
        {
            const std::lock_guard guard(lock_);
            lines_.push_back(line);
            call = std::exchange(onNextLine, nullptr);
        }
        if (call) {
            call();
        }
    }
    static HRESULT CalledReserved()
    {
        ADD_FAILURE() << "the module called a reserved slot";
        return E_NOTIMPL;
    }

private:
    std::mutex lock_;
    Lines lines_;
};

class HostObject : public HostFake<IAgentHost> {};

/// Keeps each line as "E text", "W text" or "I text". Returns failures, which the module must ignore.
class RecordingLogger : public HostFake<IAgentLogger> {
public:
    HRESULT STDMETHODCALLTYPE Reserved7() override { return CalledReserved(); }
    HRESULT STDMETHODCALLTYPE GetLogLevels(LPWSTR category, LONG* mask) override
    {
        EXPECT_STREQ(category, L"eventlog");
        EXPECT_EQ(*mask, 0);
        ++asked;
        *mask = levels;
        return E_FAIL;
    }
    HRESULT STDMETHODCALLTYPE LogError(BSTR category, BSTR text) override { return KeepLine(L"E ", category, text); }
    HRESULT STDMETHODCALLTYPE LogWarning(BSTR category, BSTR text) override { return KeepLine(L"W ", category, text); }
    HRESULT STDMETHODCALLTYPE LogInfo(BSTR category, BSTR text) override { return KeepLine(L"I ", category, text); }

    std::atomic<LONG> levels = 7;
    std::atomic<int> asked = 0;

private:
    HRESULT KeepLine(const wchar_t* level, BSTR category, BSTR text)
    {
        EXPECT_STREQ(category, L"eventlog");
        Keep(level + std::wstring(text, SysStringLen(text)));
        return E_FAIL;
    }
};

/// Keeps each value as "key [instance] = text", numbers as "#123", refused ones too. Returns the scripted results
/// in turn and S_OK after the last.
class RecordingSink : public HostFake<IMetricSink> {
public:
    HRESULT STDMETHODCALLTYPE Reserved7() override { return CalledReserved(); }
    HRESULT STDMETHODCALLTYPE Reserved8() override { return CalledReserved(); }
    HRESULT STDMETHODCALLTYPE Reserved9() override { return CalledReserved(); }
    HRESULT STDMETHODCALLTYPE WriteMetric(BSTR key, BSTR instance, VARIANT value) override
    {
        EXPECT_TRUE(value.vt == VT_BSTR || value.vt == VT_UI8) << value.vt;
        const std::wstring text = value.vt == VT_BSTR ? std::wstring(value.bstrVal, SysStringLen(value.bstrVal))
                                                      : L"#" + std::to_wstring(value.ullVal);
        Keep(std::wstring(key) + L" [" + (instance != nullptr ? instance : L"(null)") + L"] = " + text);
        HRESULT hr = S_OK;
        if (!results.empty()) {
            hr = results.front();
            results.pop_front();
        }
        return hr;
    }

    std::deque<HRESULT> results; // one collection at a time uses them
};
