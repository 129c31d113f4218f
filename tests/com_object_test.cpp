#include "tests/support/module_under_test.h"

#include <tlhelp32.h>

#include <future>
#include <thread>
#include <utility>

namespace {

const IID kServed[] = {IID_IUnknown, IID_IDispatch, __uuidof(IDataProvider), __uuidof(IDataProviderEx),
                       __uuidof(IOrvelDataProvider)};

ComPtr<IUnknown> Ask(IUnknown* object, REFIID iid, HRESULT expected = S_OK)
{
    ComPtr<IUnknown> out;
    EXPECT_EQ(object->QueryInterface(iid, reinterpret_cast<void**>(out.GetAddressOf())), expected);
    return out;
}

// Queries every interface of a provider for every other one: IUnknown is `identity`, the others are one pointer.
void ExpectIdentity(IUnknown* identity, IUnknown* provider)
{
    for (const IID& from : kServed) {
        const ComPtr<IUnknown> queried = Ask(provider, from);
        for (const IID& to : kServed) {
            EXPECT_EQ(Ask(queried.Get(), to).Get(), IsEqualIID(to, IID_IUnknown) ? identity : provider);
        }
        EXPECT_FALSE(Ask(queried.Get(), IID_IClassFactory, E_NOINTERFACE));
    }
}

ComPtr<IClassFactory> Factory(const ModuleUnderTest& module)
{
    ComPtr<IClassFactory> factory;
    EXPECT_EQ(module.GetClassObject(IID_IClassFactory, reinterpret_cast<void**>(factory.GetAddressOf())), S_OK);
    return factory;
}

DWORD Threads()
{
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32W entry = {};
    entry.dwSize = sizeof(entry);
    while (entry.th32ProcessID != GetCurrentProcessId() && Process32NextW(snapshot, &entry)) {
    }
    CloseHandle(snapshot);
    return entry.cntThreads;
}

// An object that aggregates a provider.
class Outer : public HostFake<IAgentHost> {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override
    {
        return IsEqualIID(iid, IID_IUnknown) || !part ? HostFake::QueryInterface(iid, out)
                                                      : part->QueryInterface(iid, out);
    }
    ComPtr<IUnknown> part;
};

TEST(ComObject, KeepsItsIdentityAloneAndAggregated)
{
    const ModuleUnderTest module;
    const ComPtr<IOrvelDataProvider> plain = module.CreateProvider();
    ExpectIdentity(Ask(plain.Get(), IID_IUnknown).Get(), plain.Get());
    EXPECT_EQ(plain->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
    Outer outer;
    ASSERT_EQ(
        Factory(module)->CreateInstance(&outer, IID_IUnknown, reinterpret_cast<void**>(outer.part.GetAddressOf())),
        S_OK);
    // The non-delegating IUnknown serves and counts the provider alone.
    EXPECT_EQ(Ask(outer.part.Get(), IID_IUnknown).Get(), outer.part.Get());
    EXPECT_EQ(outer.References(), 0U) << "an aggregated object must not hold its outer object";
    const ComPtr<IUnknown> provider = Ask(outer.part.Get(), __uuidof(IOrvelDataProvider));
    EXPECT_EQ(outer.References(), 1U) << "every other interface counts the outer object";
    ExpectIdentity(&outer, provider.Get());
}

TEST(ComObject, RefusesWithTheDocumentedCodes)
{
    ComPtr<IUnknown> out;
    auto** const slot = reinterpret_cast<void**>(out.GetAddressOf());
    // Mapped without being started, the module serves nothing.
    const HMODULE mapped =
        LoadLibraryExW(BuiltFile(L"Orvel_eventlog.dll").c_str(), nullptr, DONT_RESOLVE_DLL_REFERENCES);
    decltype(&DllGetClassObject) const getClass = orvel::FunctionOf{mapped, "DllGetClassObject"};
    EXPECT_EQ(getClass(kProviderClass, IID_IClassFactory, slot), E_UNEXPECTED);
    EXPECT_TRUE(FreeLibrary(mapped));

    const ModuleUnderTest module;
    const ComPtr<IClassFactory> factory = Factory(module);
    const ComPtr<IOrvelDataProvider> provider = module.CreateProvider();
    Outer outer;
    UINT count = 0;
    DISPID id = 0;
    wchar_t* name = nullptr;
    EXPECT_EQ(module.GetClassObject(IID_IClassFactory, nullptr), E_POINTER);
    EXPECT_EQ(Ask(factory.Get(), IID_IUnknown).Get(), factory.Get());
    const auto expectEmpty = [&](HRESULT expected, const auto& call) {
        *slot = &outer;
        EXPECT_EQ(call(), expected);
        EXPECT_EQ(std::exchange(*slot, nullptr), nullptr);
    };
    expectEmpty(CLASS_E_CLASSNOTAVAILABLE,
                [&] { return module.GetClassObject(IID_IClassFactory, slot, IID_IUnknown); });
    expectEmpty(E_NOINTERFACE, [&] { return module.GetClassObject(IID_IDispatch, slot); });
    expectEmpty(CLASS_E_NOAGGREGATION, [&] { return factory->CreateInstance(&outer, IID_IDispatch, slot); });
    expectEmpty(E_NOINTERFACE, [&] { return factory->CreateInstance(nullptr, IID_IClassFactory, slot); });
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IUnknown, nullptr), E_POINTER);
    EXPECT_EQ(provider->GetTypeInfoCount(nullptr), E_POINTER);
    EXPECT_TRUE(provider->GetTypeInfoCount(&count) == S_OK && count == 1);
    EXPECT_EQ(provider->GetTypeInfo(1, 0, reinterpret_cast<ITypeInfo**>(slot)), DISP_E_BADINDEX);
    EXPECT_EQ(provider->GetTypeInfo(0, 0, nullptr), E_POINTER);
    EXPECT_EQ(provider->GetIDsOfNames(IID_IUnknown, &name, 1, 0, &id), DISP_E_UNKNOWNINTERFACE);
    EXPECT_EQ(provider->Invoke(id, IID_IUnknown, 0, DISPATCH_METHOD, nullptr, nullptr, nullptr, nullptr),
              DISP_E_UNKNOWNINTERFACE);
    EXPECT_FALSE(out);
}

TEST(ComObject, LeaksNothingInManyRounds)
{
    constexpr DWORD kRounds = 30;
    DWORD threads = 0;
    DWORD handles = 0;
    for (DWORD round = 0; round < kRounds; ++round) {
        {
            const ModuleUnderTest module;
            ComPtr<IClassFactory> factory = Factory(module);
            EXPECT_EQ(module.CanUnloadNow(), S_FALSE);
            factory->LockServer(TRUE);
            EXPECT_EQ(module.CanUnloadNow(), S_FALSE) << "the lock and the factory, which a wrong sign would balance";
            factory.Reset();
            EXPECT_EQ(module.CanUnloadNow(), S_FALSE) << "the lock alone";
            factory = Factory(module);
            factory->LockServer(FALSE);
            ComPtr<IOrvelDataProvider> provider = module.CreateProvider();
            ComPtr<ITypeInfo> typeInfo;
            EXPECT_EQ(provider->GetTypeInfo(0, 0, typeInfo.GetAddressOf()), S_OK);
            EXPECT_EQ(provider->SubscribeMetric(_bstr_t(kCrash), Configuration().Get()), S_OK);
            factory.Reset();
            EXPECT_EQ(module.CanUnloadNow(), S_FALSE);
        }
        if (round == 0) { // what the platform keeps exists from the first round on
            threads = Threads();
            handles = Handles();
        }
    }
    EXPECT_LT(Threads(), threads + kRounds / 2);
    EXPECT_LT(Handles(), handles + kRounds / 2);
}

TEST(ComObject, StaysMappedWhileItsSubscriptionIsOpenThoughComFreesIt)
{
    const std::wstring copy = BuiltFile(L"com_object_test.dll");
    ASSERT_TRUE(CopyFileW(BuiltFile(L"Orvel_eventlog.dll").c_str(), copy.c_str(), FALSE));
    const auto isMapped = [&] { return GetModuleHandleW(copy.c_str()) != nullptr; };
    const auto call = [&](const char* name) { return ModuleUnderTest(copy).Export<HRESULT STDAPICALLTYPE()>(name)(); };
    EXPECT_EQ(call("DllRegisterServer"), S_OK);
    LoadEvents(Event(L"text"));
    Replay().SetMode(ReplayCloseDoesNotWait);
    RecordingLogger logger;
    HostObject host;
    RecordingSink sink;
    ComPtr<IOrvelDataProvider> provider;
    const auto subscribe = [&](const wchar_t* metric) {
        ASSERT_EQ(CoCreateInstance(kProviderClass, nullptr, CLSCTX_INPROC_SERVER, __uuidof(IOrvelDataProvider),
                                   reinterpret_cast<void**>(provider.GetAddressOf())),
                  S_OK);
        EXPECT_EQ(provider->SetHost(&logger, &host), S_OK);
        EXPECT_EQ(provider->SubscribeMetric(_bstr_t(metric), Configuration().Get()), S_OK);
        logger.Take();
    };
    std::thread([&] {
        CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        // The host releases the provider, and COM the module, while a delivery is inside the logger.
        subscribe(kLamina);
        std::promise<void> inside;
        std::promise<void> proceed;
        logger.onNextLine = [&] {
            inside.set_value();
            proceed.get_future().wait();
        };
        std::thread delivery([] { EXPECT_EQ(Replay().Deliver(0, 1), 0U); });
        inside.get_future().wait();
        provider.Reset();
        CoFreeUnusedLibrariesEx(0, 0);
        EXPECT_TRUE(isMapped());
        proceed.set_value();
        delivery.join();
        EXPECT_TRUE(Eventually([&] { return !isMapped(); }));

        // The apartment ends before the host releases the provider. Windows' COM then releases the module; Wine's keeps
        // its reference, which the test releases.
        subscribe(kCrash);
        CoUninitialize();
        ASSERT_TRUE(isMapped());
        EXPECT_EQ(Replay().Deliver(0, 1), 0U);
        EXPECT_EQ(provider->QueryMetricEx(_bstr_t(kCrash), 0, &sink), S_OK);
        EXPECT_EQ(sink.Take().size(), 2U);
        FreeLibrary(GetModuleHandleW(copy.c_str()));
        EXPECT_TRUE(isMapped());
        provider.Reset();
        EXPECT_TRUE(Eventually([&] { return !isMapped(); }));
    }).join();
    EXPECT_EQ(call("DllUnregisterServer"), S_OK);
    EXPECT_TRUE(DeleteFileW(copy.c_str()));
}

} // namespace
