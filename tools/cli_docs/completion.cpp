// Both shells get the same plan: walk the words typed so far to find the
// command they are in and whether the word being completed is a value; then
// offer that command's options and the commands that may follow it. bash and
// zsh share the syntax of that walk, so one writer serves both.
#include "completion.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <functional>
#include <sstream>
#include <vector>

namespace camrelay::cli_docs {
namespace {

// What the word after a given word is.
enum class Value { None, File, Dir, Text };

struct Word {
  std::string name;
  std::string help;
  Value next = Value::None;
  std::string target;  // commands: the context they lead to
};

// A command of the program ("" for the program itself, "db dump" for a
// command of a command) with the words that may follow it.
struct Context {
  std::string path;
  std::vector<Word> commands;
  std::vector<Word> options;
};

std::string FirstSentence(const std::string& text) {
  const auto end = text.find(". ");
  std::string sentence = text.substr(0, end);
  if (!sentence.empty() && sentence.back() == '.') sentence.pop_back();
  return sentence;
}

Value ValueOf(const CLI::Option& option) {
  if (option.get_items_expected_max() == 0) return Value::None;  // a flag
  std::string name = option.nonpositional() ? option.get_type_name() : option.get_name(true, false);
  name = name.substr(0, name.find(':'));  // "INT:INT in [1 - 65535]" names an INT
  if (name == "FILE") return Value::File;
  if (name == "DIR") return Value::Dir;
  return Value::Text;
}

bool Hidden(const CLI::Option& option) { return option.get_group().empty(); }

std::vector<const CLI::App*> Commands(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App* sub) { return !sub->get_name().empty(); });
}

std::string PathOf(const CLI::App& app) {
  if (!app.get_parent()) return "";
  const std::string parent = PathOf(*app.get_parent());
  return parent.empty() ? app.get_name() : parent + " " + app.get_name();
}

// The value a command's first positional takes right after its name.
Value PositionalOf(const CLI::App& command) {
  for (const CLI::Option* option : command.get_options())
    if (!option->nonpositional()) return ValueOf(*option);
  return Value::None;
}

void AddUnique(std::vector<Word>& words, Word word) {
  for (const Word& w : words)
    if (w.name == word.name) return;
  words.push_back(std::move(word));
}

// A command that falls through also takes the options and the commands of
// the one it is in, which is how commands are chained on one line.
void CollectWords(const CLI::App& app, Context& context) {
  for (const CLI::Option* option : app.get_options()) {
    if (!option->nonpositional() || Hidden(*option)) continue;
    const auto add = [&](const std::string& name) {
      AddUnique(context.options, {name, FirstSentence(option->get_description()), ValueOf(*option), ""});
    };
    for (const std::string& name : option->get_snames()) add("-" + name);
    for (const std::string& name : option->get_lnames()) add("--" + name);
  }
  for (const CLI::App* command : Commands(app))
    AddUnique(context.commands,
              {command->get_name(), FirstSentence(command->get_description()), PositionalOf(*command),
               PathOf(*command)});
  if (app.get_fallthrough() && app.get_parent()) CollectWords(*app.get_parent(), context);
}

void CollectContexts(const CLI::App& app, std::vector<Context>& contexts) {
  Context context{PathOf(app), {}, {}};
  CollectWords(app, context);
  contexts.push_back(std::move(context));
  for (const CLI::App* command : Commands(app)) CollectContexts(*command, contexts);
}

std::string Quoted(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

const char* ValueName(Value value) {
  switch (value) {
    case Value::File: return "file";
    case Value::Dir: return "dir";
    case Value::Text: return "text";
    case Value::None: break;
  }
  return "";
}

// Contexts whose branch would read the same share one case pattern.
using Branch = std::function<std::string(const Context&)>;
std::string CaseOver(const std::vector<Context>& contexts, const Branch& branch, const std::string& indent) {
  std::vector<std::pair<std::string, std::string>> groups;  // body, pattern
  for (const Context& context : contexts) {
    const std::string body = branch(context);
    auto group = std::find_if(groups.begin(), groups.end(), [&](const auto& g) { return g.first == body; });
    if (group == groups.end())
      groups.emplace_back(body, Quoted(context.path));
    else
      group->second += "|" + Quoted(context.path);
  }
  std::string out;
  for (const auto& [body, pattern] : groups) out += indent + pattern + ")" + body + ";;\n";
  return out;
}

std::string WalkBranch(const Context& context) {
  std::string out = "\n        case $word in\n";
  for (const Word& command : context.commands) {
    out += "          " + Quoted(command.name) + ") at=" + Quoted(command.target);
    if (command.next != Value::None) out += std::string(" value=") + ValueName(command.next);
    out += ";;\n";
  }
  for (const Word& option : context.options)
    if (option.next != Value::None)
      out += "          " + Quoted(option.name) + ") value=" + ValueName(option.next) + ";;\n";
  return out + "        esac";
}

std::string Names(const std::vector<Word>& words) {
  std::string names;
  for (const Word& word : words) names += (names.empty() ? "" : " ") + word.name;
  return names;
}

// "name:help" items for zsh's _describe, whose separator is the colon.
std::string Described(const std::vector<Word>& words) {
  std::string items;
  for (const Word& word : words) {
    std::string item = word.name + ":";
    for (const char c : word.help) item += c == ':' ? std::string("\\:") : std::string(1, c);
    items += (items.empty() ? "" : " ") + Quoted(item);
  }
  return items;
}

// The loop that finds where the words typed so far lead: $at is the command,
// $value says that the word being completed is the value of the one before.
std::string Walk(const std::vector<Context>& contexts, const std::string& first, const std::string& current,
                 const std::string& wordAt) {
  return "  local at= value= word i\n"
         "  for ((i = " + first + "; i < " + current + "; i++)); do\n"
         "    word=" + wordAt + "\n"
         "    if [[ -n $value ]]; then value=; continue; fi\n"
         "    case $at in\n" +
         CaseOver(contexts, WalkBranch, "      ") +
         "    esac\n"
         "  done\n";
}

std::string FunctionName(const CLI::App& app) {
  std::string name = "_" + app.get_name();
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
}

}  // namespace

std::string BashCompletion(const CLI::App& app) {
  std::vector<Context> contexts;
  CollectContexts(app, contexts);
  const std::string function = FunctionName(app);
  std::ostringstream out;
  out << "# bash completion for " << app.get_name() << ", written by '" << app.get_name()
      << " --completion bash'\n"
      << function << "() {\n"
      << "  local cur=${COMP_WORDS[COMP_CWORD]}\n"
      << Walk(contexts, "1", "COMP_CWORD", "${COMP_WORDS[i]}")
      << "  case $value in\n"
         "    file) compopt -o filenames 2>/dev/null || :; COMPREPLY=($(compgen -f -- \"$cur\")); return;;\n"
         "    dir) compopt -o filenames 2>/dev/null || :; COMPREPLY=($(compgen -d -- \"$cur\")); return;;\n"
         "    text) COMPREPLY=(); return;;\n"
         "  esac\n"
         "  local commands= options=\n"
         "  case $at in\n"
      << CaseOver(contexts,
                  [](const Context& c) {
                    return " commands=" + Quoted(Names(c.commands)) + " options=" + Quoted(Names(c.options));
                  },
                  "    ")
      << "  esac\n"
         "  if [[ $cur == -* || -z $commands ]]; then\n"
         "    COMPREPLY=($(compgen -W \"$options\" -- \"$cur\"))\n"
         "  else\n"
         "    COMPREPLY=($(compgen -W \"$commands\" -- \"$cur\"))\n"
         "  fi\n"
         "}\n"
      << "complete -F " << function << " " << app.get_name() << "\n";
  return out.str();
}

std::string ZshCompletion(const CLI::App& app) {
  std::vector<Context> contexts;
  CollectContexts(app, contexts);
  const std::string function = FunctionName(app);
  std::ostringstream out;
  out << "#compdef " << app.get_name() << "\n"
      << "# zsh completion for " << app.get_name() << ", written by '" << app.get_name() << " --completion zsh'\n"
      << function << "() {\n"
      << Walk(contexts, "2", "CURRENT", "${words[i]}")
      << "  case $value in\n"
         "    file) _files; return;;\n"
         "    dir) _files -/; return;;\n"
         "    text) _message 'a value'; return;;\n"
         "  esac\n"
         "  local -a commands options\n"
         "  case $at in\n"
      << CaseOver(contexts,
                  [](const Context& c) {
                    return " commands=(" + Described(c.commands) + ") options=(" + Described(c.options) + ")";
                  },
                  "    ")
      << "  esac\n"
         "  if [[ ${words[CURRENT]} == -* || ${#commands} -eq 0 ]]; then\n"
         "    _describe -t options option options\n"
         "  else\n"
         "    _describe -t commands command commands\n"
         "  fi\n"
         "}\n"
      << function << " \"$@\"\n";
  return out.str();
}

void AddCompletionOption(CLI::App& app) {
  app.add_option_function<std::string>(
         "--completion",
         [&app](const std::string& shell) {
           // CLI11 prints the text of a CallForVersion and exits 0, before it
           // checks that a command was given: the script leaves the same way.
           throw CLI::CallForVersion(shell == "bash" ? BashCompletion(app) : ZshCompletion(app), 0);
         },
         "Print the completion script for SHELL, bash or zsh, and exit")
      ->type_name("SHELL")
      ->check(CLI::IsMember({"bash", "zsh"}));
}

}  // namespace camrelay::cli_docs
