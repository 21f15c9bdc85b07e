#!/bin/sh
# Turns the legacy /etc/syslog.conf ("logfile.name = value" on each line) into the settings that
# hvsyslogd reads, and puts the old file aside, so that it is turned once only.
set -eu
old=/etc/syslog.conf new=/etc/nimbus/hvsyslog.conf
{
    echo "# made from $old"
    sed -n 's/^ *logfile\.\(file\|level\) *= *\([A-Za-z0-9./_-]*\) *$/\1=\2/p' "$old"
} >"$new.new"
mv -f "$new.new" "$new"
mv -f "$old" "$old.upgraded"
