#!/usr/bin/env bash
# Looks for what macOS's own tools refuse in the scripts that the Mac job of the GitHub workflow
# runs: options that only GNU's tools have (BSD paste, sed, stat, date, mktemp, head, xargs, grep,
# find), tools that macOS lacks, and what bash 3.2, macOS's /bin/bash, cannot parse or run. A
# small list of known traps, not a proof: the Mac job is what shows the rest. Comment lines are
# skipped. Says where each one is and fails if there is any.
# Usage: scripts/check-macos-scripts.sh
set -euo pipefail
cd "$(dirname "$0")/.."

scripts=(.github/workflows/ci.yml scripts/test.sh scripts/prerequisites.sh
    scripts/check-macos-executable.sh tests/registration/registrationTest.sh)

found=0
# Each rule below: an extended regular expression, a tab, and what is wrong. (Read by the loop,
# not from a command substitution: bash before 4.0 scans a here-document there as code.)
while IFS=$'\t' read -r pattern problem; do
    for script in "${scripts[@]}"; do
        # Comment lines emptied, so that the line numbers stay.
        if hits=$(sed 's/^[[:space:]]*#.*//' "$script" | grep -nE -- "$pattern"); then
            while IFS= read -r hit; do
                echo "$script:${hit%%:*}: $problem: ${hit#*:}" >&2
            done <<<"$hits"
            found=1
        fi
    done
done <<'EOF'
(^|[^[:alnum:]_-])paste( +-[[:alpha:]]*d *('[^']*'|"[^"]*"|[^ |;)]+)| +-[[:alpha:]]+)* *($|[|;)])	BSD paste needs a file operand: - for standard input
(^|[^[:alnum:]_-])sed [^|;]*-[[:alpha:]]*i([^.[:alnum:]]|$)	BSD sed -i takes the next word as the backup suffix: give -i.bak, or write a new file
(^|[^[:alnum:]_-])sed [^|;]*-[[:alpha:]]*r	BSD sed has no -r: use -E
(^|[^[:alnum:]_-])stat +(-c|--)	BSD stat has no -c or long options: use -f
(^|[^[:alnum:]_-])date +(-d|--)	BSD date has no -d or long options: use -j -f
(^|[^[:alnum:]_-])(readlink +-f|realpath)	macOS before 13 has neither readlink -f nor realpath
(^|[^[:alnum:]_-])mktemp [^|;]*--	BSD mktemp has no long options
(^|[^[:alnum:]_-])xargs [^|;]*(-[[:alpha:]]*[rd]|--)	BSD xargs has no -r, -d or long options
(^|[^[:alnum:]_-])grep [^|;]*-[[:alpha:]]*P	BSD grep has no -P
(^|[^[:alnum:]_-])head [^|;]*-[nc] *-	BSD head takes no negative count
(^|[^[:alnum:]_-])find [^|;]*-(printf|regextype)	BSD find has no -printf or -regextype
(^|[;&|(]|then|do|else) *(timeout|tac) 	macOS has no timeout or tac
(^|[^[:alnum:]_-])(declare|local|typeset) +-[[:alpha:]]*[An]	bash 3.2 has no associative arrays or name references
(^|[^[:alnum:]_-])(mapfile|readarray|coproc)( |$)	bash 3.2 has no mapfile, readarray or coproc
[$][{][[:alnum:]_]+([[][^]]*[]])?[,^]	bash 3.2 cannot change case in an expansion
[$][{][[:alnum:]_]+[[]-[0-9]	bash 3.2 takes no negative array index
[$][{][^}]*@[QEPAaUuLK][}]	bash 3.2 has no @ transformations
[[][[] +-v 	bash 3.2 has no [[ -v ]]
[|]&|&>>|;;&|;&	bash 3.2 has no |&, &>>, ;;& or ;&
(^|[^[:alnum:]_-])wait +-n	bash 3.2 has no wait -n
(^|[^[:alnum:]_-])shopt +-s +(globstar|lastpipe|inherit_errexit)	bash 3.2 has no globstar, lastpipe or inherit_errexit
[$][{]?(EPOCHSECONDS|EPOCHREALTIME|BASHPID)	bash 3.2 has no EPOCHSECONDS, EPOCHREALTIME or BASHPID
EOF
exit "$found"
