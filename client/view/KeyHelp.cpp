#include "client/view/KeyHelp.h"

#include <array>

std::span<const KeyHelp> AllKeyHelp() {
  static constexpr std::array kKeys{
      KeyHelp{"", "Panes"},
      KeyHelp{"1 to 8, Tab", "another pane; Shift-Tab goes back"},
      KeyHelp{"v", "the next record of the pane, as in groups and workgroups"},
      KeyHelp{"Enter", "open what the cursor stands on"},
      KeyHelp{"Esc, Backspace",
              "close what is open; Esc gives up what is typed, Ctrl-U empties it"},
      KeyHelp{"", "Rows"},
      KeyHelp{"arrows, Page keys, Home, End, wheel", "move; left and right shift the columns"},
      KeyHelp{"< >", "sort by the column to the left, to the right; so does a click on a heading"},
      KeyHelp{"P M D N", "sort by processor, memory, disk or name"},
      KeyHelp{"R", "turn the order round"},
      KeyHelp{"t", "as a tree, or not"},
      KeyHelp{"/", "only rows with a text, or as --where has it: CPU % Each > 10"},
      KeyHelp{"f", "choose the columns, which are kept for the next time"},
      KeyHelp{"d", "set a mark and show differences to it; again to end that"},
      KeyHelp{"", "Columns, behind f"},
      KeyHelp{"blank", "take a field, or leave it out"},
      KeyHelp{"- +", "move it to the left, to the right"},
      KeyHelp{"0", "those of the beginning"},
      KeyHelp{"", "Time"},
      KeyHelp{"[ ]", "the kept sample before, the next one"},
      KeyHelp{"{ }", "ten minutes back and on"},
      KeyHelp{"j", "jump to a time: 18:30, 2h, \"2026-11-25 07:30\""},
      KeyHelp{"n", "back to now"},
      KeyHelp{"p, z, blank", "pause, and go on"},
      KeyHelp{"i, s", "seconds from look to look"},
      KeyHelp{"", "Besides"},
      KeyHelp{"? h", "these keys"},
      KeyHelp{"Ctrl-L", "draw the screen anew"},
      KeyHelp{"click", "go to a pane, sort by a heading, move to a row"},
      KeyHelp{"q", "close what is open, else quit"},
      KeyHelp{"Ctrl-C", "quit"}};
  return kKeys;
}
