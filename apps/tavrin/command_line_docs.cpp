#include "command_line_docs.h"

#include <CLI/CLI.hpp>
#include <fmt/core.h>
#include <fstream>
#include <iostream>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "model/cleaning_profile.h"
#include "model/file_type.h"

namespace tavrin::cli {

namespace {

constexpr const char* kVersion = TAVRIN_VERSION;

// Text made safe for roff: backslashes and hyphens escaped, and a leading dot or quote guarded.
std::string roff(std::string_view text) {
    std::string out;
    for (char c : text) {
        if (c == '\\') out += "\\e";
        else if (c == '-') out += "\\-";
        else out += c;
    }
    if (!out.empty() && (out.front() == '.' || out.front() == '\'')) out.insert(0, "\\&");
    return out;
}

bool takesValue(const CLI::Option& option) { return option.get_expected_max() > 0; }

std::vector<const CLI::Option*> namedOptions(const CLI::App& command) {
    std::vector<const CLI::Option*> out;
    for (const auto* option : command.get_options())
        if (option->nonpositional()) out.push_back(option);
    return out;
}

std::vector<const CLI::Option*> positionals(const CLI::App& command) {
    std::vector<const CLI::Option*> out;
    for (const auto* option : command.get_options())
        if (!option->nonpositional()) out.push_back(option);
    return out;
}

std::vector<std::string> optionNames(const CLI::Option& option) {
    std::vector<std::string> names;
    for (const auto& s : option.get_snames()) names.push_back("-" + s);
    for (const auto& l : option.get_lnames()) names.push_back("--" + l);
    return names;
}

std::string valueName(const CLI::Option& option) {
    if (!option.get_option_text().empty()) return option.get_option_text();
    const std::string name = option.get_lnames().empty() ? "VALUE" : option.get_lnames().front();
    if (name == "profile") return "NAME";
    if (name == "output-dir") return "DIR";
    if (name == "exiftool") return "PATH";
    if (name == "keep" || name == "remove") return "KEY";
    if (name == "jobs") return "N";
    if (name == "exiftool-timeout") return "SECONDS";
    return "VALUE";
}

std::string synopsis(const std::string& invocation, const CLI::App& command) {
    std::string text = fmt::format(".B {}\n[\\fIOPTIONS\\fR]", roff(invocation));
    for (const auto* p : positionals(command))
        text += fmt::format(" \\fI{}\\fR{}", roff(p->get_name()), p->get_expected_max() > 1 ? "..." : "");
    return text + "\n";
}

void writeOptions(std::ostream& out, const CLI::App& command) {
    for (const auto* option : namedOptions(command)) {
        std::string names;
        for (const auto& n : optionNames(*option)) names += (names.empty() ? "" : ", ") + fmt::format("\\fB{}\\fR", roff(n));
        if (takesValue(*option)) names += fmt::format(" \\fI{}\\fR", roff(valueName(*option)));
        out << ".TP\n" << names << "\n" << roff(option->get_description()) << "\n";
    }
    for (const auto* p : positionals(command))
        out << ".TP\n\\fI" << roff(p->get_name()) << "\\fR\n" << roff(p->get_description()) << "\n";
}

void writeCommonSections(std::ostream& out) {
    out << ".SH EXIT STATUS\n" << roff(kExitStatusText) << "\n";
    out << ".SH ENVIRONMENT\n.TP\n.B NO_COLOR\nWhen set and not empty, output carries no colour. "
           "Colour is also left out when standard output is not a terminal.\n"
           ".TP\n.B TAVRIN_PDF_PASSWORD\nThe password of encrypted PDFs when none is given on the command line.\n";
}

std::string pageName(const CLI::App* command) { return command ? "tavrin\\-" + roff(command->get_name()) : "tavrin"; }

void writeCommandPage(std::ostream& out, const CLI::App& app, const CLI::App& command) {
    const std::string name = "tavrin-" + command.get_name();
    out << fmt::format(".TH {} 1 \"\" \"tavrin {}\" \"User Commands\"\n", roff(name), kVersion);
    out << ".SH NAME\n" << roff(name) << " \\- " << roff(command.get_description()) << "\n";
    out << ".SH SYNOPSIS\n";
    const auto subcommands = command.get_subcommands({});
    if (subcommands.empty()) {
        out << synopsis("tavrin " + command.get_name(), command);
        out << ".SH OPTIONS\n";
        writeOptions(out, command);
    } else {
        for (const auto* sub : subcommands) out << synopsis("tavrin " + command.get_name() + " " + sub->get_name(), *sub) << ".br\n";
        out << ".SH DESCRIPTION\n" << roff(command.get_description()) << "\n";
        for (const auto* sub : subcommands) {
            out << ".SH " << roff(command.get_name() + " " + sub->get_name()) << "\n"
                << roff(sub->get_description()) << "\n";
            writeOptions(out, *sub);
        }
    }
    writeCommonSections(out);
    out << ".SH SEE ALSO\n\\fBtavrin\\fR(1)\n";
    (void)app;
}

void writeMainPage(std::ostream& out, const CLI::App& app) {
    out << fmt::format(".TH TAVRIN 1 \"\" \"tavrin {}\" \"User Commands\"\n", kVersion);
    out << ".SH NAME\ntavrin \\- show and remove the metadata files carry, verifying every cleaned copy\n";
    out << ".SH SYNOPSIS\n.B tavrin\n\\fICOMMAND\\fR [\\fIOPTIONS\\fR] [\\fIPATH\\fR...]\n.br\n"
           ".B tavrin\n\\fB\\-\\-help\\fR | \\fB\\-\\-version\\fR\n";
    out << ".SH DESCRIPTION\n" << roff(app.get_description()) << "\n";
    out << ".SH COMMANDS\n";
    for (const auto* command : app.get_subcommands({}))
        out << ".TP\n\\fBtavrin " << roff(command->get_name()) << "\\fR\n" << roff(command->get_description())
            << (command->get_description().ends_with('.') ? "" : ".") << " See \\fB" << pageName(command)
            << "\\fR(1).\n";
    out << ".SH PROFILES\n";
    for (auto name : CleaningProfile::presetNames()) out << ".IP \\(bu 2\n" << roff(name) << "\n";
    writeCommonSections(out);
    out << ".SH SEE ALSO\n";
    std::string see;
    for (const auto* command : app.get_subcommands({}))
        see += (see.empty() ? "" : ",\n") + fmt::format("\\fB{}\\fR(1)", pageName(command));
    out << see << "\n";
}

int writeManPages(const CLI::App& app, const std::filesystem::path& directory) {
    std::error_code ec;
    std::filesystem::create_directories(directory, ec);
    const auto write = [&](const std::string& file, auto&& body) {
        std::ofstream out(directory / file, std::ios::binary | std::ios::trunc);
        body(out);
        return static_cast<bool>(out);
    };
    bool ok = write("tavrin.1", [&](std::ostream& out) { writeMainPage(out, app); });
    for (const auto* command : app.get_subcommands({}))
        ok = write("tavrin-" + command->get_name() + ".1",
                   [&](std::ostream& out) { writeCommandPage(out, app, *command); }) && ok;
    if (!ok) std::cerr << "tavrin: cannot write the manual pages into " << directory.string() << "\n";
    return ok ? 0 : 1;
}

// Every extension Tavrin recognises, for completing file arguments.
std::vector<std::string> knownExtensions() {
    std::set<std::string> seen;
    for (FileType type : fileTypes::allCases())
        for (auto e : fileExtensions(type)) seen.insert(std::string(e));
    return {seen.begin(), seen.end()};
}

std::string join(const std::vector<std::string>& items, std::string_view separator) {
    std::string out;
    for (const auto& item : items) out += (out.empty() ? "" : std::string(separator)) + item;
    return out;
}

std::vector<std::string> allOptionNames(const CLI::App& command) {
    std::vector<std::string> names;
    for (const auto* option : namedOptions(command))
        for (auto& n : optionNames(*option)) names.push_back(std::move(n));
    return names;
}

std::vector<std::string> valueOptionNames(const CLI::App& app) {
    std::set<std::string> names;
    std::vector<const CLI::App*> pending{&app};
    while (!pending.empty()) {
        const auto* command = pending.back();
        pending.pop_back();
        for (const auto* option : namedOptions(*command))
            if (takesValue(*option))
                for (auto& n : optionNames(*option)) names.insert(n);
        for (const auto* sub : command->get_subcommands({})) pending.push_back(sub);
    }
    return {names.begin(), names.end()};
}

void writeBash(std::ostream& out, const CLI::App& app) {
    std::vector<std::string> commands;
    for (const auto* c : app.get_subcommands({})) commands.push_back(c->get_name());
    std::vector<std::string> patterns;
    for (const auto& e : knownExtensions()) patterns.push_back("*." + e);
    std::vector<std::string> profiles;
    for (auto p : CleaningProfile::presetNames()) profiles.emplace_back(p);

    out << "# bash completion for tavrin, generated by `tavrin __generate bash` from its command definitions.\n";
    out << "_tavrin() {\n"
           "    local cur=\"${COMP_WORDS[COMP_CWORD]}\" prev=\"${COMP_WORDS[COMP_CWORD-1]}\"\n"
           "    local cmd=\"\" sub=\"\" i word skip=0\n";
    out << "    local value_options=\" " << join(valueOptionNames(app), " ") << " \"\n";
    out << "    for ((i = 1; i < COMP_CWORD; i++)); do\n"
           "        word=\"${COMP_WORDS[i]}\"\n"
           "        if ((skip)); then skip=0; continue; fi\n"
           "        case \"$word\" in\n"
           "            -*) [[ $value_options == *\" $word \"* ]] && skip=1 ;;\n"
           "            *) if [[ -z $cmd ]]; then cmd=\"$word\"; elif [[ -z $sub ]]; then sub=\"$word\"; fi ;;\n"
           "        esac\n"
           "    done\n";
    out << "    case \"$prev\" in\n"
           "        --profile) COMPREPLY=($(compgen -W \"" << join(profiles, " ") << "\" -- \"$cur\")); return ;;\n"
           "        -o|--output-dir) COMPREPLY=($(compgen -d -- \"$cur\")); compopt -o filenames 2>/dev/null; return ;;\n"
           "        --files-from|--exiftool) COMPREPLY=($(compgen -f -- \"$cur\")); compopt -o filenames 2>/dev/null; return ;;\n"
           "    esac\n"
           "    [[ $value_options == *\" $prev \"* ]] && return\n";
    out << "    local options=\"\"\n    case \"$cmd\" in\n"
           "        \"\") COMPREPLY=($(compgen -W \"" << join(commands, " ") << " --help --version\" -- \"$cur\")); return ;;\n";
    for (const auto* command : app.get_subcommands({})) {
        const auto subs = command->get_subcommands({});
        if (subs.empty()) {
            out << "        " << command->get_name() << ") options=\"" << join(allOptionNames(*command), " ") << "\" ;;\n";
            continue;
        }
        std::vector<std::string> subNames;
        for (const auto* s : subs) subNames.push_back(s->get_name());
        out << "        " << command->get_name() << ")\n            case \"$sub\" in\n"
            << "                \"\") COMPREPLY=($(compgen -W \"" << join(subNames, " ") << " --help\" -- \"$cur\")); return ;;\n";
        for (const auto* s : subs)
            out << "                " << s->get_name() << ") options=\"" << join(allOptionNames(*s), " ") << "\" ;;\n";
        out << "            esac ;;\n";
    }
    out << "    esac\n";
    out << "    if [[ $cur == -* ]]; then COMPREPLY=($(compgen -W \"$options\" -- \"$cur\")); return; fi\n"
           "    [[ $cmd == formats ]] && return\n"
           "    compopt -o filenames 2>/dev/null\n"
           "    local f\n"
           "    COMPREPLY=()\n"
           "    while IFS= read -r f; do\n"
           "        if [[ -d $f ]]; then COMPREPLY+=(\"$f\"); continue; fi\n"
           "        case \"${f,,}\" in\n"
           "            " << join(patterns, "|") << ") COMPREPLY+=(\"$f\") ;;\n"
           "        esac\n"
           "    done < <(compgen -f -- \"$cur\")\n"
           "}\n"
           "complete -F _tavrin tavrin\n";
}

// Text for a zsh description in brackets or after a colon.
std::string zshText(std::string_view text) {
    std::string out;
    for (char c : text) {
        if (c == '[' || c == ']') out += c == '[' ? '(' : ')';
        else if (c == '\'') out += "'\\''";
        else if (c == ':') out += "\\:";
        else out += c;
    }
    const auto stop = out.find(". ");
    return stop == std::string::npos ? out : out.substr(0, stop);
}

void writeZshArguments(std::ostream& out, const CLI::App& command, const std::string& indent,
                       const std::string& filePattern) {
    out << indent << "_arguments -s";
    for (const auto* option : namedOptions(command)) {
        const bool repeatable = option->get_expected_max() > 1 || option->get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll;
        std::string action;
        if (takesValue(*option)) {
            const std::string name = option->get_lnames().empty() ? "" : option->get_lnames().front();
            if (name == "profile") {
                std::vector<std::string> profiles;
                for (auto p : CleaningProfile::presetNames()) profiles.emplace_back(p);
                action = ":profile:(" + join(profiles, " ") + ")";
            } else if (name == "output-dir") {
                action = ":directory:_files -/";
            } else if (name == "files-from" || name == "exiftool") {
                action = ":file:_files";
            } else {
                action = ":" + valueName(*option) + ": ";
            }
        }
        for (const auto& n : optionNames(*option))
            out << " \\\n" << indent << "  '" << (repeatable ? "*" : "") << n << "[" << zshText(option->get_description())
                << "]" << action << "'";
    }
    if (!positionals(command).empty()) out << " \\\n" << indent << "  '*:file:_files -g \"" << filePattern << "\"'";
    out << "\n";
}

void writeZsh(std::ostream& out, const CLI::App& app) {
    const std::string filePattern = "*.(#i)(" + join(knownExtensions(), "|") + ")";
    out << "#compdef tavrin\n"
           "# zsh completion for tavrin, generated by `tavrin __generate zsh` from its command definitions.\n\n"
           "_tavrin() {\n"
           "  local curcontext=\"$curcontext\" state line\n"
           "  local -a commands\n"
           "  commands=(\n";
    for (const auto* c : app.get_subcommands({}))
        out << "    '" << c->get_name() << ":" << zshText(c->get_description()) << "'\n";
    out << "  )\n"
           "  _arguments -C '(- *)--help[Print help]' '(- *)--version[Print the version]' '1: :->command' '*:: :->args'\n"
           "  case $state in\n"
           "    command) _describe -t commands 'tavrin command' commands ;;\n"
           "    args)\n"
           "      case $words[1] in\n";
    for (const auto* command : app.get_subcommands({})) {
        out << "        " << command->get_name() << ")\n";
        const auto subs = command->get_subcommands({});
        if (subs.empty()) {
            writeZshArguments(out, *command, "          ", filePattern);
        } else {
            out << "          local -a subcommands\n          subcommands=(\n";
            for (const auto* s : subs) out << "            '" << s->get_name() << ":" << zshText(s->get_description()) << "'\n";
            out << "          )\n"
                   "          _arguments -C '1: :->sub' '*:: :->subargs'\n"
                   "          case $state in\n"
                   "            sub) _describe -t commands 'tavrin " << command->get_name() << " command' subcommands ;;\n"
                   "            subargs)\n"
                   "              case $words[1] in\n";
            for (const auto* s : subs) {
                out << "                " << s->get_name() << ")\n";
                writeZshArguments(out, *s, "                  ", "*.(#i)pdf");
                out << "                  ;;\n";
            }
            out << "              esac ;;\n          esac\n";
        }
        out << "          ;;\n";
    }
    out << "      esac ;;\n  esac\n}\n\n_tavrin \"$@\"\n";
}

}  // namespace

std::optional<int> runGenerator(const CLI::App& app, int argc, char** argv) {
    if (argc < 3 || std::string_view(argv[1]) != "__generate") return std::nullopt;
    const std::string_view what = argv[2];
    if (what == "man" && argc == 4) return writeManPages(app, argv[3]);
    if (what == "bash" && argc == 3) {
        writeBash(std::cout, app);
        return std::cout ? 0 : 1;
    }
    if (what == "zsh" && argc == 3) {
        writeZsh(std::cout, app);
        return std::cout ? 0 : 1;
    }
    std::cerr << "tavrin: __generate takes man DIR, bash or zsh\n";
    return 2;
}

}  // namespace tavrin::cli
