#include "client/Completion.h"

#include <algorithm>
#include <vector>

#include "client/CommandLine.h"
#include "client/CommandView.h"

namespace {

/// What may be written at one place of the tree.
struct Place {
  std::vector<std::string> path;  ///< the commands up to here, without the program
  const CLI::App* command;
};

void AddPlaces(const CLI::App& command, const std::vector<std::string>& path,
               std::vector<Place>& places) {
  places.push_back({path, &command});
  for (const CLI::App* subcommand : SubcommandsOf(command)) {
    std::vector<std::string> below = path;
    below.push_back(subcommand->get_name());
    AddPlaces(*subcommand, below, places);
  }
}

std::vector<Place> PlacesOf(const CLI::App& tree) {
  std::vector<Place> places;
  AddPlaces(tree, {}, places);
  return places;
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
std::vector<const CLI::Option*> OptionsAt(const CLI::App& tree, const Place& place) {
  std::vector<const CLI::Option*> options = OptionsOf(*place.command, false);
  if (place.command != &tree) {
    const std::vector<const CLI::Option*> common = OptionsOf(tree, false);
    options.insert(options.end(), common.begin(), common.end());
  }
  return options;
}

bool HasArgument(const Place& place, const char* name) {
  const auto arguments = OptionsOf(*place.command, true);
  return std::any_of(arguments.begin(), arguments.end(),
                     [&](const CLI::Option* argument) { return NameOf(*argument) == name; });
}

bool TakesFile(const CLI::Option& option) {
  return ValueOf(option) == "PATH" || ValueOf(option) == "FILE";
}

/// The value begins with the label of a field.
bool TakesLabel(const CLI::Option& option) {
  const std::string name = NameOf(option);
  return name == "--where" || name == "--sort" || name == "--columns" || name == "--plot";
}

/// The name of an application that there is already.
bool TakesApplication(const Place& place) {
  return place.path.size() == 2 && place.path[0] == "app" && place.path[1] != "add" &&
         HasArgument(place, "NAME");
}

std::vector<std::string> ChoicesOf(const CommandLine& line, const CLI::Option* option) {
  const auto found = line.choices.find(option);
  return found == line.choices.end() ? std::vector<std::string>{} : found->second;
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
std::string ValueCases(const CLI::App& tree, const std::vector<Place>& places,
                       const CommandLine& line, const ValueForms& forms) {
  std::string text;
  for (const Place& place : places) {
    for (const CLI::Option* option : OptionsAt(tree, place)) {
      if (ValueOf(*option).empty()) {
        continue;
      }
      const std::vector<std::string> choices = ChoicesOf(line, option);
      text += "    " + Quoted(Joined(place.path, " ") + '/' + NameOf(*option)) + ") ";
      text += !choices.empty()      ? forms.choices(choices)
              : TakesFile(*option)  ? forms.files
              : TakesLabel(*option) ? forms.labels
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

std::string BashCompletion(const CLI::App& tree, const CommandLine& line) {
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
    for (const CLI::App* command : SubcommandsOf(*place.command)) {
      all.push_back(command->get_name());
    }
    for (const CLI::Option* option : OptionsAt(tree, place)) {
      all.push_back(NameOf(*option));
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
         ValueCases(tree, places, line, forms) + "  esac\n  case \"$path\" in\n" + words +
         "  esac\n"
         "  if [[ $current != -* && -n $records ]]; then\n"
         "    words+=\" $(qmtctl complete-records 2>/dev/null)\"\n"
         "  fi\n"
         "  COMPREPLY=($(compgen -W \"$words\" -- \"$current\"))\n"
         "  if [[ $current != -* && -n $applications ]]; then\n"
         "    _qmtctl_lines complete-applications\n"
         "  fi\n"
         "  if [[ $current != -* && -n $files ]]; then\n"
         "    COMPREPLY+=($(compgen -f -- \"$current\"))\n"
         "  fi\n"
         "}\n"
         "complete -F _qmtctl qmtctl\n";
}

std::string ZshCompletion(const CLI::App& tree, const CommandLine& line) {
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
    for (const CLI::App* command : SubcommandsOf(*place.command)) {
      all += entry(command->get_name(), command->get_description());
    }
    for (const CLI::Option* option : OptionsAt(tree, place)) {
      all += entry(NameOf(*option), option->get_description());
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
         ValueCases(tree, places, line, forms) + "  esac\n  case \"$path\" in\n" + words +
         "  esac\n"
         "  _describe -t commands qmtctl all\n"
         "  [[ -z $records ]] || compadd -- ${(f)\"$(qmtctl complete-records 2>/dev/null)\"}\n"
         "  [[ -z $applications ]] || compadd -- "
         "${(f)\"$(qmtctl complete-applications 2>/dev/null)\"}\n"
         "  [[ -z $files ]] || _files\n"
         "}\n"
         "_qmtctl \"$@\"\n";
}

std::string FishCompletion(const CLI::App& tree, const CommandLine& line) {
  std::string text =
      "# Fish completion of qmtctl, made from its commands.\n"
      "complete -c qmtctl -f\n";
  for (const Place& place : PlacesOf(tree)) {
    std::vector<std::string> conditions;
    for (const std::string& word : place.path) {
      conditions.push_back("__fish_seen_subcommand_from " + word);
    }
    std::vector<std::string> below;
    for (const CLI::App* command : SubcommandsOf(*place.command)) {
      below.push_back(command->get_name());
    }
    const std::string here =
        conditions.empty() ? "" : " -n " + Quoted(Joined(conditions, "; and "));
    if (!below.empty()) {
      conditions.push_back("not __fish_seen_subcommand_from " + Joined(below, " "));
      for (const CLI::App* command : SubcommandsOf(*place.command)) {
        text += "complete -c qmtctl -n " + Quoted(Joined(conditions, "; and ")) + " -a " +
                Quoted(command->get_name()) + " -d " + Quoted(command->get_description()) + '\n';
      }
    }
    for (const CLI::Option* option : OptionsOf(*place.command, false)) {
      const std::vector<std::string> choices = ChoicesOf(line, option);
      text += "complete -c qmtctl" + here + " -l " + NameOf(*option).substr(2) + " -d " +
              Quoted(option->get_description());
      text += ValueOf(*option).empty() ? "" : TakesFile(*option) ? " -r -F" : " -x";
      text += choices.empty() ? "" : " -a " + Quoted(Joined(choices, " "));
      text += TakesLabel(*option)
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
