// Pages made from the options themselves, so that they cannot tell anything else: the manual page and the
// completions of three shells.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

namespace tessaline::cli {

// "man", "bash", "zsh" or "fish"; nothing for another kind. `frames` is the program's word "stream".
std::optional<std::string> PageOf(const std::string& kind, const CLI::App& pictures, const CLI::App& frames);

}  // namespace tessaline::cli
