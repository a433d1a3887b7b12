#!/usr/bin/env bash
# Holds the verdicts of quorin-scanner explain, and of the dissector for Wireshark, against what the
# library does: sends every kind of wrong message and search to a host, in a network of its own, with
# a capture of each, and compares the rule that both name with the answer that came.  Prints a line a
# case.  Usage: scripts/check_verdicts.sh BUILD_FOLDER
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
readonly here

[[ -d ${1:-} ]] || {
  printf 'usage: scripts/check_verdicts.sh BUILD_FOLDER\n' >&2
  exit 2
}
if [[ -z ${QUORIN_PRIVATE_ADDRESS:-} ]]; then
  exec "$here/private_network.sh" --with-scanner bash "${BASH_SOURCE[0]}" "$@"
fi
build=$(cd "$1" && pwd)
readonly build pc=$QUORIN_PRIVATE_ADDRESS scanner=$QUORIN_SCANNER_ADDRESS
to=$pc
export LC_ALL=C
# shellcheck source=scripts/background.sh
. "$here/background.sh"
mkdir "$work/alone" "$work/captures"
cp -L "$build"/{quorin-host,libZVQRN.so} "$work/alone"

failed=0
cases=()     # in the order in which they ran
report() {
  if [[ $2 == good ]]; then
    printf 'passed  verdicts-%s\n' "$1"
  else
    failed=$((failed + 1))
    printf 'FAILED  verdicts-%s: %s\n' "$1" "$2"
    [[ ! -s $work/output ]] || sed 's/^/        /' "$work/output"
  fi
}

start_host() {
  begin "$work/host.out" 'The service runs' "$1" --name VERDICTS "${@:2}"
}

# The value of a member of the last object that has it in a file of JSON lines.
member() {
  sed -nE "s/.*\"$2\":\"?([^\",}]*)[\",}].*/\1/p" "$1" | tail -n 1
}

# What explain says of the scanner's messages in a capture: their rules in order.
rules_of() {
  { "$build/quorin-scanner" explain --json "$1" || true; } |
    sed -nE 's/.*"rule":"([a-z-]+)".*/\1/p' | xargs
}

# Records what goes over the wire, with both sides of every connection.
start_capture() {
  begin "$work/dumpcap.err" 'File: ' dumpcap -q -i any -f 'port 2968' -w "$1"
}
end_capture() {
  sleep 1
  end_last
}

# Pushes, and prints what the PC answered: an x-status, perhaps with a word; "nothing"; "closed".
pc_answer() {
  local got
  "$build/quorin-scanner" push --to "$to" --json "$@" >"$work/output" 2>&1 || true
  got=$(member "$work/output" xStatus)
  [[ -z $(member "$work/output" statusOut) ]] || got+=" $(member "$work/output" statusOut)"
  if [[ -z $got ]]; then
    got=nothing
    ! grep -qE 'closed the connection|connection broke|ended the connection' "$work/output" ||
      got=closed
  fi
  printf '%s\n' "$got"
}

# A case: the rules that explain must name, and what the PC must have answered.
push_case() {
  local name=$1 rules=$2 wanted=$3 verdict=good got
  shift 3
  # The service takes a moment to see that the scanner before this one has gone.
  got=$(pc_answer --pcap "$work/captures/$name.pcap" "$@")
  [[ $got == "$wanted" ]] || verdict="the PC answered '$got', not '$wanted'"
  check_rules "$name" "$rules" "$verdict"
}

# A reply may take long, and ends the wait.
search_case() {
  local name=$1 rules=$2 wanted=$3 verdict=good got=nothing patience=20000
  shift 3
  [[ $wanted == reply ]] || patience=250
  "$build/quorin-scanner" discover --to "$pc" --from "$scanner" --json --timeout "$patience" --count 1 \
    --pcap "$work/captures/$name.pcap" "$@" >"$work/output" 2>&1 || true
  ! grep -q '"event":"pc"' "$work/output" || got=reply
  [[ $got == "$wanted" ]] || verdict="the PC sent '$got', not '$wanted'"
  check_rules "$name" "$rules" "$verdict"
}

check_rules() {
  local named
  cases+=("$1 $2")
  named=$(rules_of "$work/captures/$1.pcap")
  [[ $named == "$2" || $3 != good ]] || set -- "$1" "$2" "explain names '$named', not '$2'"
  report "$1" "$3"
}

# Messages that no option makes.
"$build/quorin-scanner" push --to "$pc" --pcap "$work/good.pcap" --timeout 100 >/dev/null 2>&1 || true
crlf='s/$/\r/'
head_of() {
  printf '%s\n' 'POST /PushScan HTTP/1.0' 'x-protocol-name : Zorva Network Service Protocol' \
    'x-protocol-version : 1.00' "x-uid : $1" "Content-Length : $2" ''
}
body=$(printf '<p:PushScan ><ProductNameIn>XS-200</ProductNameIn>')
head_of lf 5 >"$work/lf-lines"
printf 'wrong' >>"$work/lf-lines"
{ head_of lf-body 20 && printf '<?xml version="1.0" ?>\r\n'; } >"$work/lf-head"
head_of tokens 5 | sed -e 's/HTTP/ HTTP/' -e "$crlf" >"$work/start-line"
head_of cut 5 | sed "$crlf" | head -c 60 >"$work/head-cut"
{ head_of body 700 | sed "$crlf" && printf '%s' "$body"; } >"$work/body-cut"
{ head_of answer 5 | sed -e 's/^POST.*/HTTP\/1.0 200 OK/' -e "$crlf" && printf 'wrong'; } >"$work/response"
printf 'no document' >"$work/no-document"
request='\x02\x06\x00\x00\x35\x20\x00\x00\x00\x00\x12\x34\x00\x02en\x00\x00\x00\x14service:Quorin-agent\x00\x07default\x00\x00\x00\x00'
# shellcheck disable=SC2059 # the escapes are the datagram
printf "${request/x35/x36}" >"$work/slp-header"
# shellcheck disable=SC2059
printf "${request/x06/x01}" >"$work/slp-function"
# shellcheck disable=SC2059
printf "${request/x07default/x77default}" >"$work/slp-body"

# ---- A host that serves ----
start_host "$build/quorin-host" --answer-for 'Quorin XS-300=PARAM_ERR' \
  --answer-for 'Quorin XD-7500 Duplex=BUSY' --send ready
quick=(--timeout 500)
push_case accepted accepted '0001 OK'
push_case version-2 accepted '0001 OK' --protocol 2
push_case minor accepted '0002 OK' --version-text 1.5
push_case pieces accepted '0001 OK' --cut 100 --pause 5
push_case pair 'accepted response accepted' '0001 OK' --pair --hold 200
push_case lf-lines lf-lines nothing --raw-file "$work/lf-lines" "${quick[@]}"
push_case lf-head lf-lines nothing --raw-file "$work/lf-head" "${quick[@]}"
push_case start-line start-line nothing --raw-file "$work/start-line" "${quick[@]}"
push_case header-line header-line nothing --header 'x-empty:' "${quick[@]}"
push_case head-too-long 'head-too-long start-line' nothing --header "x-filler: $(printf '%04090d' 0)" "${quick[@]}"
push_case head-cut head-cut nothing --raw-file "$work/head-cut" "${quick[@]}"
push_case negative-length negative-length nothing --header 'Content-Length: -5' "${quick[@]}"
push_case negative-beyond no-body 1003 --header 'Content-Length: -5000'
push_case body-cut body-cut nothing --raw-file "$work/body-cut" --timeout 1
push_case body-stops field 2003 --raw-file "$work/body-cut" --timeout 20000
push_case response response nothing --raw-file "$work/response" "${quick[@]}"
push_case protocol-name protocol-name nothing --header 'x-protocol-name: Another' "${quick[@]}"
push_case protocol-name-longer protocol-name nothing "${quick[@]}" \
  --header 'x-protocol-name: Zorva Network Service Protocol 2'
push_case uid-missing uid-missing nothing --without x-uid "${quick[@]}"
push_case uid-too-long uid-too-long nothing --uid 12345678901234567890 "${quick[@]}"
push_case uid-longest accepted '0001 OK' --uid 1234567890123456789
push_case version-missing version-missing 1004 --without x-protocol-version
push_case version version 1001 --version-text 2.01
push_case subevent subevent 1004 --header 'x-subevent: STOP'
push_case parent-missing parent-missing 1004 --header 'x-subevent: end'
push_case parent parent 2002 --end --parent-uid none
push_case no-body 'no-body start-line' 1003 --header 'Content-Length: 0'
push_case no-length 'no-body start-line' 1003 --without Content-Length
push_case no-document no-document 2003 --body-file "$work/no-document"
push_case word field 2003 --unchecked --paper-type A9
push_case number field 2003 --unchecked --scan-x -1
push_case long-name field 2003 --unchecked --product "$(printf '%032d' 0)"
push_case id field 2003 --unchecked --protocol 2 --id 4
push_case empty-name no-driver '0001 TWAIN_NOT_INSTALL' --unchecked --protocol 2 --product ''
push_case no-driver no-driver '0001 TWAIN_NOT_INSTALL' --product XX-1
push_case host-refused host-refused '0001 PARAM_ERR' --product XS-300
push_case host-busy host-busy 2001 --product XD-7500

search_case answered answered reply
search_case answered-product answered reply --product XS-200
search_case repeated 'answered repeated' reply --repeat 2 --interval 0
search_case datagram-size datagram-size nothing --tags "$(printf '%01400d' 0)"
search_case slp-header slp-header nothing --raw-file "$work/slp-header"
search_case slp-function slp-function nothing --raw-file "$work/slp-function"
search_case slp-body slp-body nothing --raw-file "$work/slp-body"
search_case service-type service-type nothing --service-type service:printer
search_case scope-list scope-list nothing --scope default,XS-200
search_case scope-escape scope-list nothing --scope XS-200\\
search_case scope-letters scope-list nothing --scope $'XS-\xC3'
search_case previous-responder previous-responder nothing --previous "192.0.2.1,$pc"
search_case previous-first previous-responder nothing --previous "$pc" --language ''
search_case language-tag language-tag nothing --language ''
search_case scope-unserved scope-unserved nothing --product XX-1

# The main connection is taken, so every other is an extra one.
start_capture "$work/extra.pcapng"
begin "$work/listen.out" 'answer to the start' "$build/quorin-scanner" listen --to "$pc" --for 60
# The captures of these show one connection only, so whose turn it was is not to be seen in them.
push_case busy-unseen host-busy 2001
push_case extra-unseen version-missing closed --without x-protocol-version
# In the capture of the whole it is.
extra_cases=(accepted:accepted response:dropped busy:refused extra-version:closed)
extra_case() {
  local name=$1 rule=$2 wanted=$3 outcome=$3 got
  shift 3
  got=$(pc_answer "$@")
  if [[ $got == "$wanted" ]]; then report "$name" good; else report "$name" "the PC answered '$got'"; fi
  [[ $wanted != 2001 ]] || outcome=refused
  extra_cases+=("$rule:$outcome")
}
extra_case extra-busy busy 2001 --header 'x-protocol-name: zorva network service protocol 2'
extra_case extra-head extra-head closed --cut 50 --pause 100
extra_case extra-lf-lines lf-lines closed --raw-file "$work/lf-lines"
extra_case extra-response response closed --raw-file "$work/response"
extra_case extra-protocol-name protocol-name closed --header 'x-protocol-name: Another'
extra_case extra-uid-missing uid-missing closed --without x-uid
extra_case extra-uid-too-long uid-too-long closed --uid 12345678901234567890
idle=()
for ((i = 0; i < 5; ++i)); do
  exec {connection}<>"/dev/tcp/$pc/2968"
  idle+=("$connection")
done
extra_case places-taken places-taken closed
for connection in "${idle[@]}"; do
  exec {connection}<&-
done
end_last
end_capture
extra_cases+=(accepted:accepted)
got=$({ "$build/quorin-scanner" explain --json "$work/extra.pcapng" || true; } |
  sed -nE 's/.*"rule":"([a-z-]+)","outcome":"([a-z]+)".*/\1:\2/p' | xargs)
printf '%s\n' "$got" >"$work/output"
if [[ $got == "${extra_cases[*]}" ]]; then report extra good; else report extra "not ${extra_cases[*]}"; fi
end_last

# ---- One that does not answer in time, one without a utility library, none ----
start_host "$build/quorin-host" --delay 3000 --filter-delay 2000
push_case no-answer no-answer nothing "${quick[@]}"
search_case repeated-late 'answered repeated' reply --product XS-200 --repeat 2 --interval 1700
end_last
start_host "$work/alone/quorin-host"
push_case no-utility-library no-utility-library '0001 ERROR'
search_case no-utility-scope scope-unserved nothing --product XS-200
end_last
push_case not-listening not-listening nothing
to=10.68.0.77
push_case no-connection no-connection nothing "${quick[@]}"
search_case no-reply no-reply nothing

# ---- Wireshark ----
: >"$work/output"
dissect() {
  HOME=$work tshark -2 -r "$1" -X "lua_script:$here/../tools/wireshark/zvqrn.lua" "${@:2}" \
    2>"$work/tshark.err"
}
# Frame, its rules, their outcomes; a line a frame.
dissected_rules() {
  dissect "$1" -Y zvqrn.rule -T fields -e frame.number -e zvqrn.rule -e zvqrn.outcome |
    tr '\t' '|' | sort -n
}
explained_rules() {
  { "$build/quorin-scanner" explain --json "$1" || true; } |
    sed -nE 's/.*"frame":([0-9]+),.*"rule":"([a-z-]+)","outcome":"([a-z]+)","status":"([0-9]*)".*/\1|\2|\3 \4/p' |
    awk -F'|' '{ sub(" $", "", $3); rules[$1] = rules[$1] "," $2; outcomes[$1] = outcomes[$1] "," $3 }
      END { for (f in rules) print f "|" substr(rules[f], 2) "|" substr(outcomes[f], 2) }' | sort -n
}
# Fails, and shows them, when the dissector stumbled.
lua_errors() {
  dissect "$1" -Y '_ws.expert.message contains "Lua Error"' -T fields -e frame.number \
    -e _ws.expert.message >>"$work/output"
  grep -i 'lua' "$work/tshark.err" >>"$work/output" || true
  ! grep -qi lua "$work/output"
}
# The rules of the whole capture, in their order, are a case too where they are given.
compare() {
  local verdict=good
  explained_rules "$2" >"$work/explained"
  dissected_rules "$2" >"$work/dissected"
  diff "$work/explained" "$work/dissected" >"$work/output" || verdict='explain (<) and tshark (>) differ'
  [[ -s $work/explained ]] || verdict='nothing to compare'
  lua_errors "$2" || verdict='Lua errors'
  rules=$(cut -d'|' -f2 "$work/explained" | xargs)
  [[ -z ${3:-} || $rules == "$3" ]] || verdict="explain names '$rules', not '$3'"
  report "$1" "$verdict"
}

mergecap -F pcap -w "$work/all.pcap" "$work"/captures/*.pcap
compare dissector "$work/all.pcap"
compare extra-dissector "$work/extra.pcapng"

# Two captures made of these.  In the one, a request takes 33 s, of which its body takes 15 s, and then
# one takes 40 s in its body.  In the other everything comes again and again, each time from another
# scanner and with some bytes changed.
python3 - "$work" <<'PYTHON'
import random, struct, sys
ROUNDS = 15
work = sys.argv[1]
data = open(work + "/all.pcap", "rb").read()
packets, at = [], 24
while at < len(data):
    seconds, micros, size = struct.unpack_from("<III", data, at)
    packets.append((seconds, micros, data[at + 16:at + 16 + size]))
    at += 16 + size

request = next(packet for _, _, packet in packets if len(packet) > 40)  # of the first case
headers, message = request[:40], request[40:]
body = message.index(b"\r\n\r\n") + 4
with open(work + "/slow.pcap", "wb") as out:
    out.write(data[:24])
    millis = 0
    for pc, head_pause, pieces in ((1, 9000, 60), (2, 100, 160)):
        at = 0
        for size in [50, 50, body - 100] + [(len(message) - body) // pieces + 1] * pieces:
            packet = bytearray(headers) + message[at:at + size]
            struct.pack_into(">H", packet, 2, len(packet))
            struct.pack_into(">BHHI", packet, 19, pc, 2967, 2968, at)
            out.write(struct.pack("<IIII", millis // 1000, millis % 1000 * 1000, len(packet), len(packet)) + packet)
            at += size
            millis += head_pause if at < body else 250

random.seed(2968)
with open(work + "/changed.pcap", "wb") as out:
    out.write(data[:24])
    for number in range(ROUNDS):
        for seconds, micros, packet in packets:
            packet = bytearray(packet)
            is_tcp = packet[9] == 6
            to_pc = struct.unpack_from(">H", packet, 22)[0] == 2968 and (is_tcp or packet[29] in (1, 6))
            struct.pack_into("4B", packet, 12 if to_pc else 16, 10, 69, number, 3)
            start = 40 if is_tcp else 28
            for _ in range(random.choice((0, 1, 1, 2, 8)) if len(packet) > start else 0):
                at = random.randrange(start, len(packet))
                packet[at] = random.choice((packet[at] ^ 1 << random.randrange(8), 10, 13, 32, 0, 58))
            out.write(struct.pack("<IIII", seconds + 60 * number, micros, len(packet), len(packet)) + packet)
PYTHON
compare slow "$work/slow.pcap" 'accepted field start-line start-line start-line start-line start-line start-line'
compare changed-bytes "$work/changed.pcap"

start_capture "$work/demo.pcapng"
"$here/demo.sh" "$build" >"$work/output" 2>&1 || report demo 'it failed'
end_capture
compare demo "$work/demo.pcapng"
rules=$(cut -d'|' -f2 "$work/explained" | tr ',' '\n' | sort | uniq -c | awk '{ print $2 "=" $1 }' | xargs)
wanted='accepted=4 answered=1 host-busy=1 no-document=1 previous-responder=1 response=2 version=1'
if [[ $rules == "$wanted" ]]; then report demo-rules good; else report demo-rules "'$rules', not '$wanted'"; fi

[[ $failed -eq 0 ]]
