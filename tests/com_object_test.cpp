#include "tests/support/module_under_test.h"

#include <utility>

namespace {

ComPtr<IUnknown> Ask(IUnknown* object, REFIID iid, HRESULT expected = S_OK)
{
    ComPtr<IUnknown> out;
    EXPECT_EQ(object->QueryInterface(iid, reinterpret_cast<void**>(out.GetAddressOf())), expected);
    return out;
}

/// Queries every interface of a provider for every other one: IUnknown is `identity`, the others are one pointer.
void ExpectIdentity(IUnknown* identity, IUnknown* provider)
{
    const IID served[] = {IID_IUnknown, IID_IDispatch, __uuidof(IDataProvider), __uuidof(IDataProviderEx),
                          __uuidof(IOrvelDataProvider)};
    for (const IID& from : served) {
        const ComPtr<IUnknown> queried = Ask(provider, from);
        for (const IID& to : served) {
            EXPECT_EQ(Ask(queried.Get(), to).Get(), IsEqualIID(to, IID_IUnknown) ? identity : provider);
        }
        EXPECT_FALSE(Ask(queried.Get(), IID_IClassFactory, E_NOINTERFACE));
    }
}

/// An object that aggregates a provider.
class Outer : public HostFake<IAgentHost> {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override
    {
        return IsEqualIID(iid, IID_IUnknown) || !part ? HostFake::QueryInterface(iid, out)
                                                      : part->QueryInterface(iid, out);
    }
    ComPtr<IUnknown> part;
};

class ComObject : public testing::Test {
protected:
    ComPtr<IClassFactory> Factory()
    {
        ComPtr<IClassFactory> factory;
        EXPECT_EQ(module.GetClassObject(kProviderClass, IID_PPV_ARGS(factory.GetAddressOf())), S_OK);
        return factory;
    }

    const ModuleUnderTest module;
    Outer outer;
};

TEST_F(ComObject, KeepsItsIdentityAloneAndAggregated)
{
    const ComPtr<IOrvelDataProvider> plain = module.CreateProvider();
    ExpectIdentity(Ask(plain.Get(), IID_IUnknown).Get(), plain.Get());
    EXPECT_EQ(plain->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
    auto** const part = reinterpret_cast<void**>(outer.part.GetAddressOf());
    ASSERT_EQ(Factory()->CreateInstance(&outer, IID_IUnknown, part), S_OK);
    // The non-delegating IUnknown serves and counts the provider alone.
    EXPECT_EQ(Ask(outer.part.Get(), IID_IUnknown).Get(), outer.part.Get());
    EXPECT_EQ(outer.References(), 0U) << "an aggregated object must not hold its outer object";
    const ComPtr<IUnknown> provider = Ask(outer.part.Get(), __uuidof(IOrvelDataProvider));
    EXPECT_EQ(outer.References(), 1U) << "every other interface counts the outer object";
    ExpectIdentity(&outer, provider.Get());
}

TEST_F(ComObject, RefusesWithTheDocumentedCodes)
{
    ComPtr<IUnknown> out;
    auto** const slot = reinterpret_cast<void**>(out.GetAddressOf());
    const ComPtr<IClassFactory> factory = Factory();
    const ComPtr<IOrvelDataProvider> provider = module.CreateProvider();
    UINT count = 0;
    DISPID id = 0;
    wchar_t* name = nullptr;
    EXPECT_EQ(module.GetClassObject(kProviderClass, IID_IClassFactory, nullptr), E_POINTER);
    EXPECT_EQ(Ask(factory.Get(), IID_IUnknown).Get(), factory.Get());
    const auto expectEmpty = [&](HRESULT expected, const auto& call) {
        *slot = &outer;
        EXPECT_EQ(call(), expected);
        EXPECT_EQ(std::exchange(*slot, nullptr), nullptr);
    };
    expectEmpty(CLASS_E_CLASSNOTAVAILABLE,
                [&] { return module.GetClassObject(IID_IUnknown, IID_IClassFactory, slot); });
    expectEmpty(E_NOINTERFACE, [&] { return module.GetClassObject(kProviderClass, IID_IDispatch, slot); });
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

TEST(MappedOnly, ModuleThatWasNotStartedServesNothing)
{
    const HMODULE mapped = LoadLibraryExW(ModuleFile().c_str(), nullptr, DONT_RESOLVE_DLL_REFERENCES);
    decltype(&DllGetClassObject) const getClass = orvel::FunctionOf{mapped, "DllGetClassObject"};
    void* out = nullptr;
    EXPECT_EQ(getClass(kProviderClass, IID_IClassFactory, &out), E_UNEXPECTED);
    EXPECT_TRUE(FreeLibrary(mapped));
}

TEST_F(ComObject, EachObjectAndLockKeepsTheModule)
{
    for (int round = 0; round < 2; ++round) {
        ComPtr<IClassFactory> factory = Factory();
        EXPECT_EQ(module.CanUnloadNow(), S_FALSE);
        factory->LockServer(TRUE);
        EXPECT_EQ(module.CanUnloadNow(), S_FALSE) << "the lock and the factory, which a wrong sign would balance";
        factory.Reset();
        EXPECT_EQ(module.CanUnloadNow(), S_FALSE) << "the lock alone";
        Factory()->LockServer(FALSE);
        EXPECT_EQ(module.CanUnloadNow(), S_OK);
        const ComPtr<IOrvelDataProvider> provider = module.CreateProvider();
        EXPECT_EQ(module.CanUnloadNow(), S_FALSE);
    }
}

} // namespace
