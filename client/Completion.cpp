#include "client/Completion.h"

#include <algorithm>
#include <vector>

#include "client/CommandView.h"

namespace {

/// What may be written at one place of the tree.
struct Place {
  std::vector<std::string> path;  ///< the commands up to here, without the program
  const CommandView* command;
};

void AddPlaces(const CommandView& command, const std::vector<std::string>& path,
               std::vector<Place>& places) {
  places.push_back({path, &command});
  for (const CommandView& subcommand : command.subcommands) {
    std::vector<std::string> below = path;
    below.push_back(subcommand.name);
    AddPlaces(subcommand, below, places);
  }
}

std::vector<Place> PlacesOf(const CommandView& tree) {
  std::vector<Place> places;
  AddPlaces(tree, {}, places);
  return places;
}

/// The commands below one by name, without what may stand behind them.
std::vector<CommandView> NamesBelow(const CommandView& command) {
  std::vector<CommandView> names;
  for (const CommandView& subcommand : command.subcommands) {
    CommandView& name = names.emplace_back();
    name.name = subcommand.name;
    name.description = subcommand.description;
    name.subcommands = NamesBelow(subcommand);
  }
  return names;
}

/// The tree with the names of commands behind the command that takes one.
CommandView WithCommandNames(const CommandView& given) {
  CommandView tree = given;
  for (CommandView& command : tree.subcommands) {
    if (std::ranges::any_of(command.arguments, [](const OptionView& argument) {
          return argument.name == "COMMAND";
        })) {
      command.subcommands = NamesBelow(given);
    }
  }
  return tree;
}

std::string Joined(const std::vector<std::string>& words, const char* between) {
  std::string text;
  for (const std::string& word : words) {
    text += (text.empty() ? "" : between) + word;
  }
  return text;
}

/// In single quotes, as all three shells take it.
std::string Quoted(const std::string& text) {
  std::string quoted = "'";
  for (const char letter : text) {
    quoted += letter == '\'' ? "'\\''" : std::string(1, letter);
  }
  return quoted + '\'';
}

/// The program's own options may stand behind every command.
std::vector<OptionView> OptionsAt(const CommandView& tree, const Place& place) {
  std::vector<OptionView> options = place.command->options;
  if (place.command != &tree) {
    options.insert(options.end(), tree.options.begin(), tree.options.end());
  }
  return options;
}

bool HasArgument(const Place& place, const char* name) {
  const std::vector<OptionView>& arguments = place.command->arguments;
  return std::any_of(arguments.begin(), arguments.end(),
                     [&](const OptionView& argument) { return argument.name == name; });
}

bool TakesFile(const OptionView& option) {
  return option.value == "PATH" || option.value == "FILE";
}

/// The value begins with the label of a field.
bool TakesLabel(const OptionView& option) {
  const std::string& name = option.name;
  return name == "--where" || name == "--sort" || name == "--columns" || name == "--plot";
}

/// The name of an application that there is already.
bool TakesApplication(const Place& place) {
  return place.path.size() == 2 && place.path[0] == "app" && place.path[1] != "add" &&
         HasArgument(place, "NAME");
}

/// The cases that find a command's path from the words before the cursor, in Bash and in Zsh.
std::string PathCases(const std::vector<Place>& places) {
  std::string text;
  for (const Place& place : places) {
    if (!place.path.empty()) {
      std::vector<std::string> before = place.path;
      const std::string word = before.back();
      before.pop_back();
      text += "      " + Quoted(Joined(before, " ") + '/' + word) +
              ") path=" + Quoted(Joined(place.path, " ")) + " ;;\n";
    }
  }
  return text;
}

/// What two shells of one syntax offer for the value of an option: the forms of a list of values
/// and of files.
struct ValueForms {
  std::string (*choices)(const std::vector<std::string>& values);
  const char* files;
  const char* labels;
};

/// The cases for the word behind an option that takes a value.
std::string ValueCases(const CommandView& tree, const std::vector<Place>& places,
                       const ValueForms& forms) {
  std::string text;
  for (const Place& place : places) {
    for (const OptionView& option : OptionsAt(tree, place)) {
      if (option.value.empty()) {
        continue;
      }
      text += "    " + Quoted(Joined(place.path, " ") + '/' + option.name) + ") ";
      text += !option.choices.empty() ? forms.choices(option.choices)
              : TakesFile(option)     ? forms.files
              : TakesLabel(option)    ? forms.labels
                                      : "";
      text += "return ;;\n";
    }
  }
  return text;
}

/// What the place offers besides the words of the tree.
std::string Extras(const Place& place) {
  return std::string(HasArgument(place, "RECORD") ? " records=1" : "") +
         (TakesApplication(place) ? " applications=1" : "") +
         (HasArgument(place, "FILE") ? " files=1" : "") + " ;;\n";
}

}  // namespace

std::string BashCompletion(const CommandView& given) {
  const CommandView tree = WithCommandNames(given);
  const std::vector<Place> places = PlacesOf(tree);
  const ValueForms forms{[](const std::vector<std::string>& values) {
                           return "COMPREPLY=($(compgen -W " + Quoted(Joined(values, " ")) +
                                  " -- \"$current\")); ";
                         },
                         "COMPREPLY=($(compgen -f -- \"$current\")); ",
                         "_qmtctl_lines complete-labels \"${COMP_WORDS[@]}\"; "};
  std::string words;
  for (const Place& place : places) {
    const std::string path = Joined(place.path, " ");
    std::vector<std::string> all;
    for (const CommandView& command : place.command->subcommands) {
      all.push_back(command.name);
    }
    for (const OptionView& option : OptionsAt(tree, place)) {
      all.push_back(option.name);
    }
    words += "    " + Quoted(path) + ") words=" + Quoted(Joined(all, " ")) + Extras(place);
  }
  return "# Bash completion of qmtctl, made from its commands.\n"
         // Lines are data: nothing may expand them, as a list of words for compgen would.
         "_qmtctl_lines() {\n"
         "  local line\n"
         "  while IFS= read -r line; do\n"
         "    [[ $line != \"${current//\\\\/}\"* ]] || COMPREPLY+=(\"$(printf %q \"$line\")\")\n"
         "  done < <(qmtctl \"$1\" -- \"${@:2}\" 2>/dev/null)\n"
         "}\n"
         "_qmtctl() {\n"
         "  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}\n"
         "  local path='' words='' records='' applications='' files='' i\n"
         "  COMPREPLY=()\n"
         "  for ((i = 1; i < COMP_CWORD; i++)); do\n"
         "    case \"$path/${COMP_WORDS[i]}\" in\n" +
         PathCases(places) + "    esac\n  done\n  case \"$path/$previous\" in\n" +
         ValueCases(tree, places, forms) + "  esac\n  case \"$path\" in\n" + words +
         "  esac\n"
         "  COMPREPLY=($(compgen -W \"$words\" -- \"$current\"))\n"
         "  if [[ $current != -* && -n $records ]]; then\n"
         "    _qmtctl_lines complete-records\n"
         "  fi\n"
         "  if [[ $current != -* && -n $applications ]]; then\n"
         "    _qmtctl_lines complete-applications\n"
         "  fi\n"
         "  if [[ $current != -* && -n $files ]]; then\n"
         "    COMPREPLY+=($(compgen -f -- \"$current\"))\n"
         "  fi\n"
         "}\n"
         "complete -F _qmtctl qmtctl\n";
}

std::string ZshCompletion(const CommandView& given) {
  const CommandView tree = WithCommandNames(given);
  const std::vector<Place> places = PlacesOf(tree);
  // A colon parts a word from its description.
  const auto entry = [](const std::string& word, std::string description) {
    std::replace(description.begin(), description.end(), ':', ';');
    return ' ' + Quoted(word + ':' + description);
  };
  const ValueForms forms{[](const std::vector<std::string>& values) {
                           return "compadd -- " + Joined(values, " ") + "; ";
                         },
                         "_files; ",
                         "compadd -- ${(f)\"$(qmtctl complete-labels -- \"${words[@]}\" "
                         "2>/dev/null)\"}; "};
  std::string words;
  for (const Place& place : places) {
    const std::string path = Joined(place.path, " ");
    std::string all;
    for (const CommandView& command : place.command->subcommands) {
      all += entry(command.name, command.description);
    }
    for (const OptionView& option : OptionsAt(tree, place)) {
      all += entry(option.name, option.description);
    }
    words += "    " + Quoted(path) + ") all=(" + all + ")" + Extras(place);
  }
  return "#compdef qmtctl\n"
         "# Zsh completion of qmtctl, made from its commands.\n"
         "_qmtctl() {\n"
         "  local path='' records='' applications='' files='' word\n"
         "  local -a all\n"
         "  for word in \"${(@)words[2,CURRENT-1]}\"; do\n"
         "    case \"$path/$word\" in\n" +
         PathCases(places) + "    esac\n  done\n  case \"$path/${words[CURRENT-1]}\" in\n" +
         ValueCases(tree, places, forms) + "  esac\n  case \"$path\" in\n" + words +
         "  esac\n"
         "  _describe -t commands qmtctl all\n"
         "  [[ -z $records ]] || compadd -- ${(f)\"$(qmtctl complete-records 2>/dev/null)\"}\n"
         "  [[ -z $applications ]] || compadd -- "
         "${(f)\"$(qmtctl complete-applications 2>/dev/null)\"}\n"
         "  [[ -z $files ]] || _files\n"
         "}\n"
         "_qmtctl \"$@\"\n";
}

std::string FishCompletion(const CommandView& given) {
  const CommandView tree = WithCommandNames(given);
  std::string text =
      "# Fish completion of qmtctl, made from its commands.\n"
      "complete -c qmtctl -f\n";
  for (const Place& place : PlacesOf(tree)) {
    std::vector<std::string> conditions;
    for (const std::string& word : place.path) {
      conditions.push_back("__fish_seen_subcommand_from " + word);
    }
    std::vector<std::string> below;
    for (const CommandView& command : place.command->subcommands) {
      below.push_back(command.name);
    }
    const std::string here =
        conditions.empty() ? "" : " -n " + Quoted(Joined(conditions, "; and "));
    if (!below.empty()) {
      conditions.push_back("not __fish_seen_subcommand_from " + Joined(below, " "));
      for (const CommandView& command : place.command->subcommands) {
        text += "complete -c qmtctl -n " + Quoted(Joined(conditions, "; and ")) + " -a " +
                Quoted(command.name) + " -d " + Quoted(command.description) + '\n';
      }
    }
    for (const OptionView& option : place.command->options) {
      text += "complete -c qmtctl" + here + " -l " + option.name.substr(2) + " -d " +
              Quoted(option.description);
      text += option.value.empty() ? "" : TakesFile(option) ? " -r -F" : " -x";
      text += option.choices.empty() ? "" : " -a " + Quoted(Joined(option.choices, " "));
      text += TakesLabel(option)
                  ? " -a '(qmtctl complete-labels -- (commandline -opc) 2>/dev/null)'"
                  : "";
      text += '\n';
    }
    if (HasArgument(place, "RECORD")) {
      text += "complete -c qmtctl" + here + " -a '(qmtctl complete-records 2>/dev/null)'\n";
    }
    if (TakesApplication(place)) {
      text += "complete -c qmtctl" + here + " -a '(qmtctl complete-applications 2>/dev/null)'\n";
    }
    if (HasArgument(place, "FILE")) {
      text += "complete -c qmtctl" + here + " -F\n";
    }
  }
  return text;
}
