#include "tools/replay/actions.h"

#include "host/unique_resource.h"
#include "tools/replay/export_reader.h"
#include "tools/utf8.h"

#include <algorithm>
#include <cwchar>
#include <filesystem>
#include <system_error>

namespace orvel::replay {

namespace {

std::wstring Text(const Node& node, std::wstring_view attribute)
{
    return std::wstring(node.Attribute(attribute).value_or(L""));
}

/// Returns an attribute as a path, with environment variables replaced.
std::wstring Path(const Node& node, std::wstring_view attribute)
{
    const std::wstring text = Text(node, attribute);
    std::wstring path(ExpandEnvironmentStringsW(text.c_str(), nullptr, 0), L'\0');
    path.resize(ExpandEnvironmentStringsW(text.c_str(), path.data(), static_cast<DWORD>(path.size())));
    path.resize(wcslen(path.c_str())); // the count has the NUL in it
    return path;
}

DWORD WriteText(const Node& node, DWORD access, DWORD disposition)
{
    const std::wstring path = Path(node, L"file");
    std::error_code ignored; // CreateFileW fails if there is no such folder
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    // Like the service that writes such files, allow others to read, rename and delete it meanwhile.
    const HANDLE file = CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                    nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return GetLastError();
    }
    const UniqueFile owner(file);
    const auto text = WithCarriageReturns(node.text);
    const std::string bytes =
        Text(node, L"encoding") == L"utf-8"
            ? ToUtf8(text)
            : std::string(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t));
    DWORD written = 0;
    const auto size = static_cast<DWORD>(bytes.size());
    if (!WriteFile(file, bytes.data(), size, &written, nullptr)) {
        return GetLastError();
    }
    return written == size ? ERROR_SUCCESS : ERROR_DISK_FULL;
}

DWORD SetRegistryValue(const Node& node)
{
    const HKEY root = Text(node, L"root") == L"HKLM" ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER;
    const DWORD type = Text(node, L"type") == L"REG_EXPAND_SZ" ? REG_EXPAND_SZ : REG_SZ;
    const std::wstring value(node.text);
    return static_cast<DWORD>(RegSetKeyValueW(root, Text(node, L"key").c_str(), Text(node, L"name").c_str(), type,
                                              value.c_str(), static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t))));
}

DWORD Wait(const Node& node, const std::function<bool()>& goOn)
{
    constexpr unsigned long kSlice = 50;
    for (unsigned long left = std::stoul(Text(node, L"milliseconds")); left != 0; left -= std::min(left, kSlice)) {
        Sleep(std::min(left, kSlice));
        if (!goOn()) {
            return ERROR_CANCELLED;
        }
    }
    return ERROR_SUCCESS;
}

DWORD ErrorUnless(BOOL succeeded)
{
    return succeeded ? ERROR_SUCCESS : GetLastError();
}

} // namespace

DWORD CarryOut(const Action& action, const std::function<bool()>& goOn)
{
    const Node& node = action.node;
    switch (action.kind) {
    case Action::Append:
        return WriteText(node, FILE_APPEND_DATA, OPEN_ALWAYS);
    case Action::Write:
        return WriteText(node, GENERIC_WRITE, CREATE_ALWAYS);
    case Action::Rename:
        return ErrorUnless(
            MoveFileExW(Path(node, L"from").c_str(), Path(node, L"to").c_str(), MOVEFILE_REPLACE_EXISTING));
    case Action::Delete:
        return ErrorUnless(DeleteFileW(Path(node, L"file").c_str()));
    case Action::Wait:
        return Wait(node, goOn);
    default:
        return SetRegistryValue(node);
    }
}

} // namespace orvel::replay
