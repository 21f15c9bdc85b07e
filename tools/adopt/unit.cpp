#include "tools/adopt/unit.h"

namespace bootforge::adopt {

std::string unitText(const std::string& bootforge) {
  return "# Made by bootforge-adopt(8). Options: \"systemctl edit bootforge\", and there\n"
         "#     [Service]\n"
         "#     Environment=\"BOOTFORGE_OPTIONS=--parallel --plugin-flags=production\"\n"
         "[Unit]\n"
         "Description=Plugins of the hypervisor host\n"
         "Documentation=man:bootforge(8)\n"
         "RequiresMountsFor=/var/log /var/run\n"
         "\n"
         "[Service]\n"
         "Type=oneshot\n"
         "RemainAfterExit=yes\n"
         "# What plugins start stays.\n"
         "KillMode=process\n"
         "# A boot takes the time that its plugins take.\n"
         "TimeoutStartSec=infinity\n"
         "RuntimeDirectory=nimbus\n"
         "RuntimeDirectoryMode=0755\n"
         "RuntimeDirectoryPreserve=yes\n"
         "# Its messages go to the journal by themselves.\n"
         "StandardOutput=null\n"
         "Environment=BOOTFORGE_OPTIONS=\n"
         "ExecStart=/bin/sh -c 'exec " +
         bootforge +
         " --run-once=\"$$(zcat /bootbank/bootfrge.gz 2>/dev/null | sed \"s/^[^=]*=//\")\" "
         "$$BOOTFORGE_OPTIONS'\n"
         "\n"
         "[Install]\n"
         "WantedBy=multi-user.target\n";
}

}  // namespace bootforge::adopt
