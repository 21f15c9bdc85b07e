// The words of the rules.

#include "analyze/verify/finding.h"

namespace bootforge::analyze {

const std::vector<Rule>& allRules() {
  static const std::vector<Rule> rules{
      {"folder-unreadable", Severity::Error, "A folder of plugins or commands cannot be read.",
       "Without the plugin folder the boot runs nothing and exits with 1; without a command folder "
       "its commands are unknown. Make the folder, empty if there is nothing for it."},
      {"description-unreadable", Severity::Error, "A description is no file that can be read.",
       "The boot raises an alert and goes on without the plugin. Put a regular file of at most "
       "16 MiB there, or take the entry away."},
      {"description-syntax", Severity::Error, "A description is no JSON.",
       "The boot raises an alert and goes on without the plugin. Mend the JSON at the place shown; "
       "comments are allowed, trailing commas are not."},
      {"description-invalid", Severity::Error, "A description lacks what it must have.",
       "The boot raises an alert and goes on without the plugin; what it provides counts as "
       "provided by nobody."},
      {"description-unknown-key", Severity::Warning, "A key of a description is not known.",
       "The boot ignores the key and what stands behind it. Mend the spelling or take it out."},
      {"description-duplicate-key", Severity::Warning, "A key of a description is given twice.",
       "The boot takes the last one and ignores the others. Keep one."},
      {"description-ignored-key", Severity::Warning,
       "A key means nothing in this version of the description.",
       "The boot ignores it. Raise \"version\", or take the key out."},
      {"description-trailing", Severity::Warning, "Text stands behind the value of a description.",
       "The boot ignores it. Take it out, or put it into the value."},
      {"plugin-unknown-type", Severity::Warning, "An entry of the plugin folder is no plugin.",
       "The boot says so and ignores it. Plugins end in .json, .so or .debug, in lower case."},
      {"plugin-same-name", Severity::Warning, "Two plugins have one name.",
       "Both run, but messages, logs and lists on the command line cannot tell them apart. Rename "
       "one; a leading \"lib\" and the extension do not count."},
      {"milestone-unprovided", Severity::Warning,
       "A milestone is required, and no plugin provides it.",
       "The boot raises an alert, and the plugins that require it run without waiting for "
       "anything."},
      {"milestone-left-out", Severity::Note, "All plugins that provide a milestone are left out.",
       "The milestone counts as reached, and the plugins that require it run without waiting."},
      {"cycle", Severity::Error, "Plugins wait for each other.",
       "They never start, and the boot never ends. Take one of the requirements out, or split a "
       "plugin in two."},
      {"flags-contradict", Severity::Error, "A flag is required and disables the same plugin.",
       "The plugin never runs, with the flag or without it. Take it out of one of the lists."},
      {"plugin-left-out", Severity::Note, "Flags, lists or the run-once record leave a plugin out.",
       "The plugin does not run; what it provides counts as reached."},
      {"run-once-unusual", Severity::Warning,
       "The key of a run-once plugin holds an unusual character.",
       "The record keeps the key without it and never finds it again, so the plugin runs at every "
       "boot. Use letters, digits and \"-._+\" in its name and \"plugin_version\"."},
      {"run-once-collision", Severity::Warning, "Two run-once plugins have one key.",
       "The record cannot tell them apart: one counts as run when the other has. Change a name or "
       "a \"plugin_version\" (the key is the one directly followed by the other)."},
      {"command-syntax", Severity::Error, "A command line cannot be parsed.",
       "The executor refuses it, and the plugin fails."},
      {"command-unknown", Severity::Error, "A command is not known.",
       "The executor refuses it, and the plugin fails."},
      {"command-parameter-unknown", Severity::Error,
       "A command is given a parameter that it does not take.",
       "The executor refuses the command, and the plugin fails."},
      {"command-parameter-missing", Severity::Error, "A command lacks a required parameter.",
       "The executor refuses the command, and the plugin fails."},
      {"command-too-long", Severity::Error, "A command line is longer than 1023 bytes.",
       "The executor sees its first 1023 bytes only. Shorten it, or put the work into a program."},
      {"command-is-stop", Severity::Error, "A command line begins with \"stop\".",
       "It stops the executor instead of being run, and the plugin fails. Rename the namespace."},
      {"command-program-missing", Severity::Error,
       "The program of a command is no executable file.",
       "Every use of the command fails. Install the program, set its run bit, or mend the path."},
      {"command-file-invalid", Severity::Error, "A command file is a bad one.",
       "The boot skips it whole: none of its commands is known."},
      {"command-file-unknown-key", Severity::Warning, "A key of a command file is not known.",
       "The boot says so and ignores it. Mend the spelling or take it out."},
      {"command-no-timeout", Severity::Note, "A command that plugins use has no time limit.",
       "If its program hangs, so does the boot. Give it \"timeout\": SECONDS."},
      {"command-shadowed", Severity::Note, "A command is defined twice.",
       "The later definition counts; the folders are read in the order hypcli, int, int/ext, ext."},
      {"native-unloadable", Severity::Error, "A shared object cannot be loaded.",
       "The boot raises an alert and goes on without the plugin. Build it as a shared object for "
       "the machine of the image."},
      {"native-symbol-missing", Severity::Error,
       "A shared object lacks \"metadata\" or \"operations\".",
       "The boot raises an alert and goes on without the plugin. Define the symbol with C linkage "
       "and default visibility (BOOTFORGE_EXPORT)."},
      {"native-record-invalid", Severity::Error, "A record of a shared object cannot be used.",
       "The boot raises an alert and goes on without the plugin."},
      {"native-library-missing", Severity::Error,
       "A library that a shared object needs is not in the image.",
       "The loader refuses the object, and the boot goes on without the plugin. Install the "
       "library, or link it statically."},
      {"debug-invalid", Severity::Error, "A list of a debug injection has a bad escape.",
       "The boot stops reading: no plugin runs, and the exit status is 1. A backslash stands "
       "before a quote, a comma, a backslash or the letter n only."},
      {"debug-active", Severity::Warning, "The image has debug injections.",
       "Their commands run at every boot, as root, through the shell. Take "
       "/etc/nimbus/bootforge/debug.conf out of images that ship."},
      {"init-script-unrunnable", Severity::Error, "An init script cannot be run.",
       "Its daemon is not started. Set the run bit and begin the script with \"#!\" and an "
       "interpreter that the image has."},
      {"init-script-no-launcher", Severity::Warning,
       "An ordinary init script has no launcher link.",
       "It is called with \"++group=init/NAME\" as its first word and takes that for its action. "
       "Run chkconfig --add-launchers in the image."},
      {"writable-by-others", Severity::Warning,
       "Somebody other than root may write what root will run.",
       "Who may write it owns the host. Give it to root and take the group's and others' write "
       "permission away (--owner UID accepts another owner)."},
  };
  return rules;
}

}  // namespace bootforge::analyze
