# shellcheck shell=bash
# SPDX-License-Identifier: Apache-2.0
#
# For other scripts to source: apt with its own sources and state, so that the machine's sources, preferences and lists
# stay as they are. Adding a source of another release to them would offer upgrades of everything else.

# Prints the address of the Debian archive that the machine uses, whatever its address and the format of its sources,
# and nothing if there is none. Only sources whose lists have been fetched are considered.
# Usage: debian_archive CODENAME
debian_archive() {
    # shellcheck disable=SC2016 # the placeholders are for apt
    apt-get indextargets --format '$(ORIGIN)|$(LABEL)|$(CODENAME)|$(COMPONENT)|$(REPO_URI)' 'Created-By: Packages' |
        awk -F'|' -v codename="$1" \
            '$1 == "Debian" && $2 == "Debian" && $3 == codename && $4 == "main" && $5 !~ /^cdrom:/ && !found {
                     print $5; found = 1 }'
}

# Creates FOLDER/apt.conf for "apt-get -c". Downloads are verified with Debian's keys.
# Usage: make_apt_state FOLDER ARCHIVE deb|deb-src RELEASE...
make_apt_state() {
    local folder=$1 archive=$2 type=$3 index=Packages
    shift 3
    [[ $type == deb ]] || index=Sources
    mkdir -p "$folder"/{sources,state/lists/partial,cache/archives/partial}
    cat >"$folder/sources/debian.sources" <<TEXT
Types: $type
URIs: $archive
Suites: $*
Components: main
Architectures: $(dpkg --print-architecture)
Targets: $index
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg
TEXT
    # Read after the machine's own configuration, so proxies and the like stay in force. Its hooks are dropped, because
    # they work on the system's lists, and so is any permission to accept unsigned packages.
    cat >"$folder/apt.conf" <<TEXT
#clear APT::Update::Pre-Invoke;
#clear APT::Update::Post-Invoke;
#clear APT::Update::Post-Invoke-Success;
Dir::State "$folder/state";
Dir::State::Lists "$folder/state/lists";
Dir::Cache "$folder/cache";
Dir::Cache::Archives "$folder/cache/archives";
Dir::Etc::SourceList "/dev/null";
Dir::Etc::SourceParts "$folder/sources";
Dir::Etc::Preferences "/dev/null";
Dir::Etc::PreferencesParts "/dev/null";
Acquire::Retries "3";
Acquire::Languages "none";
Acquire::AllowInsecureRepositories "false";
Acquire::AllowWeakRepositories "false";
Acquire::AllowDowngradeToInsecureRepositories "false";
APT::Get::AllowUnauthenticated "false";
APT::Update::Error-Mode "any";
TEXT
}
