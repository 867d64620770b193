#include "cli/option_pages.h"

#include <algorithm>
#include <sstream>
#include <vector>

namespace tessaline::cli {
namespace {

// The words that an option takes beside numbers and names of files.
constexpr std::pair<const char*, const char*> kWordsOfOptions[] = {
    {"--acceptance", "auto"},
    {"--light", "auto coded linear"},
    {"--compression", "none fast standard small lzw deflate zstd packbits lossless lossy"},
    {"--format", "png tif jpg webp ppm jp2 jxl pdf"},
    {"--tile", "auto"},
    {"--pix-fmt", "gray rgb24 gray16le rgb48le"},
};

struct OptionLine {
  std::vector<std::string> names;  // "-a", "--acceptance"
  std::string placeholder;         // empty: a switch
  std::string words;               // that may stand for it, with spaces between
  std::string description;
  std::string section;

  bool TakesFile() const { return placeholder == "FILE"; }
  bool TakesFolder() const { return placeholder == "FOLDER"; }
};

std::vector<OptionLine> LinesOf(const CLI::App& app) {
  std::vector<OptionLine> lines;
  for (const CLI::Option* option : app.get_options()) {
    OptionLine line;
    for (const std::string& name : option->get_snames()) line.names.push_back("-" + name);
    for (const std::string& name : option->get_lnames()) line.names.push_back("--" + name);
    if (line.names.empty()) continue;  // the files
    if (option->get_type_size_max() > 0) line.placeholder = option->get_type_name();
    for (const auto& [name, words] : kWordsOfOptions) {
      if (line.names.back() == name) line.words = words;
    }
    line.description = option->get_description();
    line.section = option->get_group();
    lines.push_back(line);
  }
  return lines;
}

std::string Joined(const std::vector<std::string>& parts, const std::string& between) {
  std::string text;
  for (const std::string& part : parts) text += (text.empty() ? "" : between) + part;
  return text;
}

// Each character of `special` behind `mark`.
std::string Escaped(const std::string& text, const std::string& special, const std::string& mark) {
  std::string escaped;
  for (const char c : text) {
    if (special.find(c) != std::string::npos) escaped += mark;
    escaped += c;
  }
  return escaped;
}

// Lines of the manual: hyphens that are typed, and no line that begins with a request.
std::string Roff(const std::string& text) {
  std::string lines = Escaped(text, "-\\", "\\");
  for (size_t i = 0; i < lines.size(); ++i) {
    const bool begins = i == 0 || lines[i - 1] == '\n';
    if (begins && (lines[i] == '.' || lines[i] == '\'')) lines.insert(i, "\\&");
  }
  return lines;
}

void WriteManOptions(const CLI::App& app, std::ostream& page) {
  const std::vector<OptionLine> lines = LinesOf(app);
  for (const std::string& section : app.get_groups()) {
    bool isBegun = false;
    for (const OptionLine& line : lines) {
      if (line.section != section) continue;
      if (!isBegun) page << ".SS " << section << "\n";
      isBegun = true;
      page << ".TP\n.B " << Roff(Joined(line.names, ", "));
      if (!line.placeholder.empty()) page << " \\fI" << Roff(line.placeholder) << "\\fR";
      page << "\n" << Roff(line.description) << "\n";
    }
  }
}

void WriteManText(const std::string& text, std::ostream& page) {
  page << ".nf\n" << Roff(text.substr(text.find_first_not_of('\n'))) << "\n.fi\n";
}

std::string ManPage(const CLI::App& pictures, const CLI::App& frames) {
  std::ostringstream page;
  page
      << ".TH TESSALINE 1 \"\" \"tessaline " << TESSALINE_VERSION << "\" \"User Commands\"\n"
      << ".SH NAME\ntessaline \\- takes repeating patterns out of pictures and films\n.SH SYNOPSIS\n"
      << ".B tessaline\n[options] \\fIINPUT OUTPUT\\fR\n.br\n"
      << ".B tessaline\n[options] \\fIINPUT\\fR... \\fB\\-\\-output\\-dir\\fR \\fIFOLDER\\fR\n.br\n"
      << ".B tessaline stream\n\\fB\\-\\-width\\fR \\fIW\\fR \\fB\\-\\-height\\fR \\fIH\\fR "
      << "\\fB\\-\\-pix\\-fmt\\fR \\fIF\\fR [options] \\fIINPUT OUTPUT\\fR\n"
      << ".SH DESCRIPTION\nA repeating pattern (a halftone screen, line noise, the weave of a scan) is a few "
         "bright points of a picture's spectrum. They are found, cut out, and the rest is transformed back. "
         "INPUT is never changed.\n.SH OPTIONS\n";
  WriteManOptions(pictures, page);
  page << ".SH NOTES\n";
  WriteManText(pictures.get_footer(), page);
  page << ".SH OPTIONS OF STREAM\n";
  WriteManOptions(frames, page);
  WriteManText(frames.get_footer(), page);
  return page.str();
}

// A case of the option before the word, for what its value may be; nothing for switches.
void WriteBashValues(const CLI::App& app, std::ostream& script) {
  for (const OptionLine& line : LinesOf(app)) {
    if (line.placeholder.empty()) continue;
    script << "    " << Joined(line.names, "|") << ") ";
    if (line.TakesFile()) script << "COMPREPLY=($(compgen -f -- \"$word\")); return ;;\n";
    if (line.TakesFolder()) script << "COMPREPLY=($(compgen -d -- \"$word\")); return ;;\n";
    if (!line.TakesFile() && !line.TakesFolder()) {
      script << "COMPREPLY=($(compgen -W '" << line.words << "' -- \"$word\")); return ;;\n";
    }
  }
}

std::string AllNames(const CLI::App& app) {
  std::string names;
  for (const OptionLine& line : LinesOf(app)) names += (names.empty() ? "" : " ") + Joined(line.names, " ");
  return names;
}

std::string BashCompletion(const CLI::App& pictures, const CLI::App& frames) {
  std::ostringstream script;
  script << "# bash completion for tessaline\n_tessaline() {\n"
         << "  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]} options\n"
         << "  local IFS=$' \\n'\n  compopt -o filenames 2>/dev/null\n"
         << "  if [ \"${COMP_WORDS[1]}\" = stream ] && [ \"$COMP_CWORD\" -gt 1 ]; then\n"
         << "    options='" << AllNames(frames) << "'\n    case $before in\n";
  WriteBashValues(frames, script);
  script << "    esac\n  else\n    options='" << AllNames(pictures) << "'\n    case $before in\n";
  WriteBashValues(pictures, script);
  script << "    esac\n  fi\n  IFS=$'\\n'\n  case $word in\n"
         << "    -*) IFS=$' \\n'; COMPREPLY=($(compgen -W \"$options\" -- \"$word\")) ;;\n"
         << "    *) COMPREPLY=($(compgen -f -- \"$word\"))\n"
         << "       [ \"$COMP_CWORD\" != 1 ] || COMPREPLY+=($(compgen -W stream -- \"$word\")) ;;\n"
         << "  esac\n}\ncomplete -F _tessaline tessaline\n";
  return script.str();
}

void WriteZshArguments(const CLI::App& app, std::ostream& script) {
  for (const OptionLine& line : LinesOf(app)) {
    for (const std::string& name : line.names) {
      script << "    '" << name << "[" << Escaped(Escaped(line.description, "[]:", "\\"), "'", "'\\'") << "]";
      if (line.TakesFile()) script << ":file:_files";
      if (line.TakesFolder()) script << ":folder:_files -/";
      if (!line.words.empty()) script << ":value:(" << line.words << ")";
      if (!line.placeholder.empty() && line.words.empty() && !line.TakesFile() && !line.TakesFolder()) {
        script << ":value: ";
      }
      script << "' \\\n";
    }
  }
  script << "    '*:file:_files'\n";
}

std::string ZshCompletion(const CLI::App& pictures, const CLI::App& frames) {
  std::ostringstream script;
  script << "#compdef tessaline\nif [[ $words[2] = stream ]]; then\n  shift words\n  (( CURRENT-- ))\n"
         << "  _arguments \\\n";
  WriteZshArguments(frames, script);
  script << "else\n  _arguments \\\n";
  WriteZshArguments(pictures, script);
  script << "fi\n";
  return script.str();
}

void WriteFishLines(const CLI::App& app, const char* condition, std::ostream& script) {
  for (const OptionLine& line : LinesOf(app)) {
    script << "complete -c tessaline -n '" << condition << "'";
    for (const std::string& name : line.names) {
      script << (name[1] == '-' ? " -l " + name.substr(2) : " -s " + name.substr(1));
    }
    if (!line.placeholder.empty()) script << " -r";
    if (line.TakesFolder()) script << " -a '(__fish_complete_directories)'";
    if (!line.words.empty()) script << " -f -a '" << line.words << "'";
    script << " -d '" << Escaped(line.description, "'\\", "\\") << "'\n";
  }
}

std::string FishCompletion(const CLI::App& pictures, const CLI::App& frames) {
  std::ostringstream script;
  script << "# fish completion for tessaline\n"
         << "complete -c tessaline -n __fish_use_subcommand -a stream -d 'Raw frames of a film'\n";
  WriteFishLines(pictures, "not __fish_seen_subcommand_from stream", script);
  WriteFishLines(frames, "__fish_seen_subcommand_from stream", script);
  return script.str();
}

}  // namespace

std::optional<std::string> PageOf(const std::string& kind, const CLI::App& pictures, const CLI::App& frames) {
  using Writer = std::string (*)(const CLI::App&, const CLI::App&);
  constexpr std::pair<const char*, Writer> kWriters[] = {
      {"man", ManPage}, {"bash", BashCompletion}, {"zsh", ZshCompletion}, {"fish", FishCompletion}};
  for (const auto& [name, write] : kWriters) {
    if (kind == name) return write(pictures, frames);
  }
  return std::nullopt;
}

}  // namespace tessaline::cli
