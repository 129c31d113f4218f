#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace orvel {

/// A value as a script gives it: `s` a text, `d` a number of 32 bits.
using ScriptValue = std::variant<std::wstring, std::uint32_t>;

enum class ScriptMode {
    Plain,       ///< made at registration, removed at unregistration unless it has subkeys that are not listed
    NoRemove,    ///< made at registration, left alone at unregistration
    ForceRemove, ///< emptied before it is made, then as Plain
    Delete       ///< removed with all below it at registration
};

/// A key with what is listed below it.
struct ScriptKey {
    std::wstring name;
    ScriptMode mode = ScriptMode::Plain;
    std::optional<ScriptValue> value; ///< the key's default value
    std::vector<std::pair<std::wstring, ScriptValue>> values;
    std::vector<ScriptKey> keys;
};

enum class ScriptRoot { Classes, User, Machine };

/// A script's roots in its own order; their keys have no name.
using Script = std::vector<std::pair<ScriptRoot, ScriptKey>>;

/// Why and where a text is no script; line and column count from 1.
struct ScriptError {
    std::size_t line;
    std::size_t column;
    const wchar_t* reason;
};

/// Texts that stand for %NAME%, by NAME.
using ScriptReplacements = std::map<std::wstring, std::wstring, std::less<>>;

/// Reads a registrar script.
///
///     root { entry... }          root: HKCR, HKCU, HKLM or the long name
///     entry: [NoRemove | ForceRemove] name [= value] [{ entry... }]
///            Delete name
///            val name = value
///     value: s text | d number   number: decimal, or hexadecimal after &H
///
/// Words are separated by blanks; one in single quotes may hold blanks, and a quote written twice. Keywords are matched
/// without regard to case. Replacements are made inside words when these are already separated, so that their texts
/// may hold anything; %% stands for %. Nothing is nested deeper than 64 levels, and no key's name is empty, holds a
/// backslash or is longer than 255 characters, so that a script never reaches beyond the keys it lists.
///
/// Throws ScriptError, also for an unknown %NAME%; std::bad_alloc. Has no state and touches no registry.
Script ParseScript(std::wstring_view text, const ScriptReplacements& replacements);

} // namespace orvel
