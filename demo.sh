#!/bin/bash
# demo.sh [files|mysql] - mail hosting from a domain's creation to its deletion, on real servers
#
# For a fresh Debian 12 machine, as root. Installs what is needed, builds, and goes through the main
# job in a world of its own (scripts/private-world), which leaves nothing behind but installed packages
# and build/. With "mysql" the accounts are kept in a MariaDB server that it starts there.
set -u
here=$(dirname "$(readlink -f "$0")")
backend=${1:-files}

fail() {
    echo
    echo "demo FAILED ($backend): $*"
    exit 1
}

case $backend in
    files | mysql) ;;
    *) fail "usage: demo.sh [files|mysql]" ;;
esac

if [ "${2:-}" != inside ]; then
    cd "$here" || exit 1
    [ "$(id -u)" -eq 0 ] || fail "must run as root (try sudo)"
    scripts/install-dependencies build servers || fail "packages are missing"
    mkdir -p build
    echo "Building (output in build/demo.log) ..."
    { cmake --preset release && cmake --build --preset release --target qvmailctl; } \
        > build/demo.log 2>&1 < /dev/null || { tail -n 20 build/demo.log; fail "it does not build"; }
    scripts/private-world "$here/demo.sh" "$backend" inside < /dev/null
    status=$?
    [ $status -ne 125 ] || fail "there is no private world; the line above says why"
    exit $status
fi

# ---- From here on in the private world --------------------------------------------------------------

PATH=$here/build/release/qvmailctl:$here/scripts:$PATH
spool=/var/spool/vmail/example.test/mail
number=0

step() {
    number=$((number + 1))
    printf '\n%d. %s\n\n' $number "$*"
}

# run COMMAND - shows a command as it would be typed, and its output
run() {
    printf '   $ %s\n' "$1"
    bash -o pipefail -c "$1" 2>&1 | sed 's/^/     /'
    return "${PIPESTATUS[0]}"
}

must() {
    run "$1" || fail "$1"
}

# soon COMMAND - as must, but a server may need a moment to get there
soon() {
    local output deadline=$((SECONDS + 15))
    printf '   $ %s\n' "$1"
    until output=$(bash -c "$1" 2>&1); do
        [ $SECONDS -lt $deadline ] || {
            tail -qn 15 /var/log/postfix.log /var/log/dovecot.log
            fail "$1: $output"
        }
        sleep 0.1
    done
    [ -z "$output" ] || sed 's/^/     /' <<< "$output"
}

# must_be_empty COMMAND - for a look-up that finds nothing, a search without a line
must_be_empty() {
    local output
    printf '   $ %s\n' "$1"
    output=$(bash -c "$1" 2>&1)
    [ -z "$output" ] || { echo "$output"; fail "there is something left: $1"; }
    echo "     (nothing)"
}

# send RECIPIENT SUBJECT - hands the server a message
send() {
    printf 'From: visitor@elsewhere.test\nTo: %s\nSubject: %s\n\nSent by the demo.\n' "$1" "$2" > /run/message
    soon "curl -sS smtp://127.0.0.1 --mail-from visitor@elsewhere.test --mail-rcpt $1 -T /run/message"
}

# arrived USER SUBJECT - a message is in a user's inbox
arrived() {
    soon "grep '^Subject: $2\$' $spool/inbox/$1@example.test"
}

# refused RECIPIENT - the server knows no such address: "user unknown" or "relay access denied"
refused() {
    soon "curl -sv smtp://127.0.0.1 --mail-from visitor@elsewhere.test --mail-rcpt $1 -T /run/message 2>&1 |
       grep -E '^< (550 5.1.1|554 5.7.1) '"
}

# shown NAME - what is stored of an address, in each map or table
shown() {
    if [ "$backend" = files ]; then
        run "grep -- '$1' /etc/VirtualHosts /etc/vmail/{vpasswd,vshadow,vmaps.txt,vquota.txt,valias.txt}"
    else
        run "mariadb -t qvmail -e \"select * from virtual_domains where name like '%$1'\""
        run "mariadb -t qvmail -e \"select * from virtual_users where email like '%$1'\""
        run "mariadb -t qvmail -e \"select * from virtual_aliases where source like '%$1'\""
    fi
}

# looked_up MAP KEY - what Postfix finds
looked_up() {
    local map
    case $backend/$1 in
        files/mailboxes) map=/etc/vmail/vmaps.txt ;;
        files/aliases) map=/etc/vmail/valias.txt ;;
        files/quotas) map=/etc/vmail/vquota.txt ;;
        mysql/*) map=mysql:/etc/postfix/sql-$1.cf ;;
    esac
    must "postmap -q $2 $map"
}

step "The machine is prepared; what is there already would be kept"
[ "$backend" = files ] || must "start-mariadb empty"
must "qvmailctl init $backend --servers --config $here/config"

step "Postfix, which takes the mail, and Dovecot, which delivers it, are started"
must "start-mail-servers $backend"
must "grep '^[A-Z]' /etc/Quorvel.conf"

step "A domain is created with its first mailbox, and a second mailbox with a quota"
must "echo wonderland | qvmailctl domain add example.test alice"
must "echo cheshire | qvmailctl mailbox add bob@example.test --quota 2M"
must "qvmailctl mailbox list example.test"

step "What was written, and what Postfix looks up"
shown example.test
looked_up mailboxes alice@example.test
looked_up mailboxes bob@example.test
[ "$backend" = mysql ] || looked_up quotas bob@example.test
must "doveadm quota get -u bob@example.test"

step "Each gets a message over SMTP; an unknown user is refused"
send alice@example.test "Hello Alice"
arrived alice "Hello Alice"
send bob@example.test "Hello Bob"
arrived bob "Hello Bob"
must "cat $spool/inbox/bob@example.test"
refused nobody@example.test

step "A forwarder"
must "qvmailctl alias add sales@example.test bob@example.test"
looked_up aliases sales@example.test
send sales@example.test "An order"
arrived bob "An order"

step "A mailing list"
must "qvmailctl list add team@example.test alice@example.test bob@example.test"
looked_up aliases team@example.test
send team@example.test "A meeting"
arrived alice "A meeting"
arrived bob "A meeting"

step "A catch-all"
must "qvmailctl catchall set example.test alice"
looked_up "$([ "$backend" = files ] && echo mailboxes || echo aliases)" @example.test
send anybody@example.test "To whom it may concern"
arrived alice "To whom it may concern"
must "qvmailctl catchall remove example.test --yes"
refused anybody@example.test

step "What scripts read, and whether all is well"
must "qvmailctl mailbox show bob@example.test --json"
must "qvmailctl mailbox disable bob@example.test --dry-run --json"
must "qvmailctl check"

if [ "$backend" = files ]; then
    step "The host moves from files to a database, with mail still arriving"
    must "(umask 077; qvmailctl export > /run/hosting.json)"
    must "mv /etc/Quorvel.conf /etc/Quorvel.conf.files"
    must "start-mariadb empty"
    must "qvmailctl init mysql --servers --config $here/config"
    must "qvmailctl import /run/hosting.json --take-over"
    must "qvmailctl search @example.test"
    must "postfix reload && doveadm reload"
    backend=mysql
    looked_up mailboxes bob@example.test
    must "qvmailctl check"
    send bob@example.test "After the move"
    arrived bob "After the move"
    arrived bob "Hello Bob"
    soon "doveadm auth test bob@example.test cheshire"
fi

step "A mailbox is deleted"
must "qvmailctl alias delete sales@example.test --yes"
must "qvmailctl list set team@example.test alice@example.test"
must "qvmailctl mailbox delete bob@example.test --yes"
refused bob@example.test
refused sales@example.test
must_be_empty "ls -d $spool/*/bob@example.test 2> /dev/null"

step "The domain is deleted with its list, and nothing of it is left"
must "qvmailctl domain delete example.test --yes"
if [ "$backend" = files ]; then
    must_be_empty "postmap -q alice@example.test /etc/vmail/vmaps.txt"
    must_be_empty "grep -sh example.test /etc/VirtualHosts /etc/vmail/{vpasswd,vshadow,vmaps.txt,vquota.txt,valias.txt}"
else
    must_be_empty "mariadb -N qvmail -e 'select name from virtual_domains union select email from virtual_users union select source from virtual_aliases'"
fi
must_be_empty "ls /var/spool/vmail"
refused alice@example.test
refused team@example.test

echo
echo "demo SUCCEEDED (${1:-files}): every message went where it should, and nothing is left behind."
