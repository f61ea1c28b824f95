#include "completion.hpp"

#include <algorithm>
#include <cstddef>
#include <map>
#include <set>
#include <span>
#include <utility>

namespace manual {

namespace {

std::string quoted(std::string_view word) {
    std::string text = "'";
    for (const char c : word) {
        text += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return text + "'";
}

// Words, each with a description for the shell that shows one.
using Words = std::vector<Entry>;

struct Shell {
    std::string (*write)(const Words& words);
    std::string_view no_words; // what empties the variables names and options
    std::string_view engine;   // the functions that use the tables; @ stands for the name of them all
};

std::string bash_words(const Words& words) {
    std::string text;
    for (const Entry& word : words) {
        text += (text.empty() ? "" : " ") + word.head;
    }
    return quoted(text);
}

// "word:description"
std::string zsh_words(const Words& words) {
    std::string text;
    for (const Entry& word : words) {
        std::string head;
        for (const char c : word.head) {
            head += c == ':' ? std::string("\\:") : std::string(1, c);
        }
        text += (text.empty() ? "" : " ") + quoted(word.text.empty() ? head : head + ":" + word.text);
    }
    return "(" + text + ")";
}

void add_once(Words& words, const Entry& word) {
    if (std::ranges::find(words, word.head, &Entry::head) == words.end()) {
        words.push_back(word);
    }
}

// What may follow some first words: further words of a command's name, or options and operands.
struct Place {
    Words names;
    Words options;
};

std::map<std::string, Place> places_of(const CompletedProgram& program) {
    std::map<std::string, Place> places;
    for (const CompletedOption& option : program.options) {
        add_once(places[""].options, {option.name, option.text});
    }
    for (const CompletedCommand& command : program.commands) {
        std::string before;
        const std::vector<std::string> words = split(command.name, " ");
        for (std::size_t i = 0; i < words.size(); ++i) {
            add_once(places[before].names, {words[i], i + 1 == words.size() ? command.text : ""});
            before += (i == 0 ? "" : " ") + words[i];
        }
        Place& behind = places[before]; // there also without options
        for (const CompletedOption& option : command.options) {
            add_once(behind.options, {option.name, option.text});
        }
    }
    return places;
}

std::string value_assignments(const Value& value, const Shell& shell) {
    constexpr std::pair<Value::Kind, const char*> kinds[]{
        {Value::Kind::anything, "anything"}, {Value::Kind::words, "words"},
        {Value::Kind::files, "files"},       {Value::Kind::at_files, "at_files"},
        {Value::Kind::keys, "keys"},         {Value::Kind::directories, "directories"},
        {Value::Kind::faults, "faults"},     {Value::Kind::command, "command"},
    };
    const auto* kind = std::ranges::find(kinds, value.kind, &std::pair<Value::Kind, const char*>::first);
    std::string text = std::string("kind=") + kind->second;
    if (!value.words.empty()) {
        Words words;
        for (const std::string& word : value.words) {
            words.push_back({word, ""});
        }
        text += " offers=" + shell.write(words);
    }
    return text;
}

// The functions that know the program's words; how they are used is the same for all programs.
std::string tables(const CompletedProgram& program, const std::string& name, const Shell& shell) {
    std::string text = "# What may follow a command's name or its first word.\n" + name + "_command() {\n    " +
                       std::string(shell.no_words) + "\n    case $1 in\n";
    for (const auto& [before, place] : places_of(program)) {
        text += "    " + quoted(before) + ")\n";
        text += place.names.empty() ? "" : "        names=" + shell.write(place.names) + "\n";
        text += place.options.empty() ? "" : "        options=" + shell.write(place.options) + "\n";
        text += "        ;;\n";
    }
    text += "    *) return 1 ;;\n    esac\n}\n\n# What an option takes, if it takes anything.\n" + name +
            "_value() {\n    case $1 in\n";
    std::set<std::string> told;
    for (const CompletedCommand& command : program.commands) {
        for (const CompletedOption& option : command.options) {
            if (option.value && told.insert(option.name).second) {
                text += "    " + option.name + ") " + value_assignments(*option.value, shell) + " ;;\n";
            }
        }
    }
    text += "    *) return 1 ;;\n    esac\n}\n\n# What stands at a place behind a command's name.\n" + name +
            "_operand() {\n    case \"$1 $2\" in\n";
    for (const CompletedCommand& command : program.commands) {
        for (std::size_t i = 0; i < command.operands.size(); ++i) {
            if (command.operands[i].kind != Value::Kind::anything) {
                const bool goes_on = command.operands[i].kind == Value::Kind::command;
                text += "    " + quoted(command.name + " " + (goes_on ? "" : std::to_string(i))) +
                        (goes_on ? "*" : "") + ") " + value_assignments(command.operands[i], shell) + " ;;\n";
            }
        }
    }
    return text + "    esac\n}\n\n";
}

constexpr std::string_view bash_engine = R"sh(@() {
    local line=${COMP_LINE:0:COMP_POINT} current word command names options
    local expected= ended= prefix= kept= kind=anything offers= i place
    local -a words plain=()
    read -ra words <<<"$line"
    [[ $line == *[[:space:]] ]] && words+=("")
    current=${words[-1]}
    for word in "${words[@]:1:${#words[@]}-2}"; do
        if [[ $expected ]]; then
            expected=
        elif [[ $ended || $word != -* ]]; then
            plain+=("$word")
        elif [[ $word == -- ]]; then
            ended=yes
        elif @_value "$word"; then
            expected=$word
        fi
    done
    for command in "${plain[*]:0:2}" "${plain[*]:0:1}" ""; do
        @_command "$command" && break
    done
    words=($command)
    place=$((${#plain[@]} - ${#words[@]}))

    kind=anything offers=
    if [[ $expected ]]; then
        @_value "$expected"
    elif [[ ! $ended && $current == -*=* ]]; then
        prefix=${current%%=*}=
        @_value "${current%%=*}"
    elif [[ ! $ended && $current == -* ]]; then
        kind=words offers=$options
    else
        @_operand "$command" "$place"
        [[ $place -eq 0 && $names ]] && kind=words offers="$names $offers"
    fi

    current=${current#"$prefix"}
    COMPREPLY=()
    case $kind in
    keys) kept=${current%"${current##*,}"} ;;
    faults)
        [[ $current == *:* ]] || return
        kept=${current%"${current##*[:,]}"}
        ;;
    at_files)
        [[ $current == @* ]] || return
        kept=@
        ;;
    esac
    prefix+=$kept
    current=${current#"$kept"}
    case $kind in
    words | keys | faults) mapfile -t COMPREPLY < <(compgen -W "$offers" -- "$current") ;;
    files | at_files) mapfile -t COMPREPLY < <(compgen -f -- "$current") ;;
    directories) mapfile -t COMPREPLY < <(compgen -d -- "$current") ;;
    command)
        if [[ $place -eq 0 ]]; then
            mapfile -t COMPREPLY < <(compgen -c -- "$current")
        else
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
        fi
        ;;
    esac
    [[ $kind == *files || $kind == directories || $kind == command ]] && compopt -o filenames 2>/dev/null
    [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *= ]] && compopt -o nospace 2>/dev/null

    # Readline takes the place of what stands behind the last character that breaks words, and of no more.
    current=$prefix$current kept=
    for ((i = ${#current}; i > 0; --i)); do
        if [[ $COMP_WORDBREAKS == *"${current:i-1:1}"* ]]; then
            kept=${current:0:i}
            break
        fi
    done
    COMPREPLY=("${COMPREPLY[@]/#/"$prefix"}")
    COMPREPLY=("${COMPREPLY[@]#"$kept"}")
}
)sh";

constexpr std::string_view zsh_engine = R"sh(@() {
    local word command expected ended kind offer
    local -a plain names options offers
    local -a parts
    integer place
    for word in "${(@)words[2,CURRENT-1]}"; do
        if [[ -n $expected ]]; then
            expected=
        elif [[ -n $ended || $word != -* ]]; then
            plain+=("$word")
        elif [[ $word == -- ]]; then
            ended=yes
        elif @_value "$word"; then
            expected=$word
        fi
    done
    for command in "${plain[1,2]}" "${plain[1,1]}" ""; do
        @_command "$command" && break
    done
    parts=(${=command})
    place=$(($#plain - $#parts))

    kind=anything offers=()
    if [[ -n $expected ]]; then
        @_value "$expected"
    elif [[ -z $ended && $PREFIX == -*=* ]]; then
        @_value "${PREFIX%%=*}"
        compset -P 1 '*='
    elif [[ -z $ended && $PREFIX == -* ]]; then
        kind=words offers=("${(@)options}")
    else
        @_operand "$command" "$place"
        if ((place == 0 && $#names)); then
            kind=words offers=("${(@)names}" "${(@)offers}")
        fi
    fi

    case $kind in
    words) _describe -t words word offers ;;
    keys)
        compset -P '*,'
        compadd -S '' -- "${(@)offers}"
        ;;
    faults)
        [[ $PREFIX == *:* ]] || return 1
        compset -P '*[:,]'
        compadd -S '' -- "${(@)offers}"
        ;;
    files) _files ;;
    at_files) compset -P '@' && _files ;;
    directories) _files -/ ;;
    command)
        words=("${(@)plain[$#parts+1,-1]}" "$words[CURRENT]")
        CURRENT=$#words
        _normal
        ;;
    esac
}

)sh";

constexpr Shell bash{bash_words, "names= options=", bash_engine};
constexpr Shell zsh{zsh_words, "names=() options=()", zsh_engine};

std::string with_name(std::string_view engine, const std::string& name) {
    std::string result;
    for (std::size_t i = 0; i < engine.size(); ++i) {
        const bool is_name =
            engine[i] == '@' && i + 1 < engine.size() && (engine[i + 1] == '_' || engine[i + 1] == '(');
        result += is_name ? name : std::string(1, engine[i]);
    }
    return result;
}

std::string functions(const CompletedProgram& program, const std::string& name, const Shell& shell) {
    return tables(program, name, shell) + with_name(shell.engine, name);
}

std::string function_name(const CompletedProgram& program) {
    std::string name = "_" + program.name;
    std::ranges::replace(name, '-', '_');
    return name;
}

} // namespace

std::string for_bash(const CompletedProgram& program) {
    const std::string name = function_name(program);
    return "# Completion of " + program.name + " for bash, made from the program's own tables.\n\n" +
           functions(program, name, bash) + "\ncomplete -F " + name + " " + program.name + "\n";
}

std::string for_zsh(const CompletedProgram& program) {
    const std::string name = function_name(program);
    return "#compdef " + program.name + "\n# Completion of " + program.name +
           " for zsh, made from the program's own tables.\n\n" + functions(program, name, zsh) + name + " \"$@\"\n";
}

} // namespace manual
