#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvel {

enum class ScriptMode {
    Plain,      ///< created at registration; removed at unregistration unless other subkeys are left in it
    NoRemove,   ///< created at registration; stays at unregistration
    ForceRemove ///< emptied at registration; otherwise as Plain
};

/// A registry key and what a script lists below it.
struct ScriptKey {
    std::wstring name;
    ScriptMode mode = ScriptMode::Plain;
    std::vector<std::pair<std::wstring, std::wstring>> values; ///< name and text; the default value's name is empty
    std::vector<ScriptKey> keys;
};

/// Why and where a script is malformed; line and column count from 1.
struct ScriptError {
    std::size_t line;
    std::size_t column;
    const wchar_t* reason;
};

/// The texts that replace the words %NAME%, by word.
using ScriptReplacements = std::map<std::wstring, std::wstring>;

/// Parses a registrar script and returns its root HKCR, a key without a name.
///
///     HKCR { entry... }
///     entry: [NoRemove | ForceRemove] name [= s text] [{ entry... }]
///            val name = s text
///
/// Blanks separate words; a word in single quotes may contain blanks, but no quote. A word that contains '%' must be
/// one of `replacements`. Keywords are case-sensitive.
///
/// Throws ScriptError for a malformed script, and std::bad_alloc.
ScriptKey ParseScript(std::wstring_view text, const ScriptReplacements& replacements);

} // namespace orvel
