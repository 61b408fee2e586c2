#!/usr/bin/env bash
# The main job of `make run`: one SOAP request through the whole road of the
# library (soap-in, reply with the demonstration operator, soap-out), showing
# each stage as packet text and as frame dump; then every other example in one
# line each, and a one-line summary.
#
# Usage: tools/run_demo.sh KVXMSG EXAMPLES_DIR [MAIN_REQUEST]
set -u

kvxmsg=${1:?usage: run_demo.sh KVXMSG EXAMPLES_DIR [MAIN_REQUEST]}
examples=${2:?usage: run_demo.sh KVXMSG EXAMPLES_DIR [MAIN_REQUEST]}
main=${3:-$examples/soap/getinfo-1.2-header.xml}

if [ ! -x "$kvxmsg" ]; then
    echo "run_demo.sh: $kvxmsg is not built" >&2
    exit 1
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

stage() {
    printf '\n== %s ==\n' "$1"
}

# Runs kvxmsg; on failure names the stage and stops the demonstration.
step() {
    local what=$1
    shift
    if ! "$kvxmsg" "$@" 2>"$work/error"; then
        echo "run_demo.sh: $what failed: $(cat "$work/error")" >&2
        exit 1
    fi
}

# The SOAP version of a request, from its envelope namespace.
soap_version() {
    if grep -q 'http://www.w3.org/2003/05/soap-envelope' "$1"; then echo 1.2; else echo 1.1; fi
}

bytes() {
    wc -c <"$1" | tr -d ' '
}

# "1 fault", "2 faults".
counted() {
    if [ "$1" -eq 1 ]; then echo "1 $2"; else echo "$1 $2s"; fi
}

version=$(soap_version "$main")
echo "kvxmsg: a SOAP request through the library's roads"

stage "1. the SOAP $version request ($main)"
cat "$main"

step "soap-in" soap-in "$main" -o "$work/request.bin"
stage "2. soap-in: the request as a packet ($(bytes "$work/request.bin")-byte frame, as text)"
step "decode of the request" decode "$work/request.bin"

stage "3. the request frame (kvxmsg dump)"
step "dump of the request" dump "$work/request.bin"

step "reply" reply --origin demo-agent --fill "$work/request.bin" -o "$work/reply.bin"
stage "4. reply --origin demo-agent --fill: the reply packet ($(bytes "$work/reply.bin")-byte frame, as text)"
step "decode of the reply" decode "$work/reply.bin"

stage "5. the reply frame (kvxmsg dump)"
step "dump of the reply" dump "$work/reply.bin"

step "soap-out" soap-out --soap "$version" "$work/reply.bin" -o "$work/response.xml"
stage "6. soap-out --soap $version: the SOAP response"
cat "$work/response.xml"

stage "the other examples"
requests=1
responses=0
faults=0
failures=0
if grep -q '<soap:Fault>' "$work/response.xml"; then faults=1; else responses=1; fi
for request in "$examples"/soap/*.xml; do
    [ "$request" = "$main" ] && continue
    requests=$((requests + 1))
    name=${request#"$examples"/}
    soap=$(soap_version "$request")
    if "$kvxmsg" soap-in "$request" -o "$work/in.bin" 2>"$work/error" &&
        "$kvxmsg" reply --origin demo-agent --fill "$work/in.bin" -o "$work/out.bin" 2>>"$work/error" &&
        "$kvxmsg" soap-out --soap "$soap" "$work/out.bin" -o "$work/out.xml" 2>>"$work/error"; then
        if grep -q '<soap:Fault>' "$work/out.xml"; then
            faults=$((faults + 1))
            reason=$(sed -n 's:.*<\(faultstring\|soap\:Text\)>\(.*\)</.*:\2:p' "$work/out.xml" | head -1)
            echo "$name (SOAP $soap): fault \"$reason\", $(bytes "$work/out.xml") bytes"
        else
            responses=$((responses + 1))
            echo "$name (SOAP $soap): response, $(bytes "$work/out.xml") bytes"
        fi
    else
        failures=$((failures + 1))
        echo "$name (SOAP $soap): $(head -1 "$work/error")"
    fi
done

packets=0
verified=0
same=0
for packet in "$examples"/packets/*.xml; do
    packets=$((packets + 1))
    name=${packet#"$examples"/}
    step "encode of $name" encode "$packet" -o "$work/p1.bin"
    line="$name: encode $(bytes "$work/p1.bin") bytes"
    if "$kvxmsg" verify "$work/p1.bin" >/dev/null 2>&1; then
        verified=$((verified + 1))
        line="$line, verify ok"
    else
        line="$line, verify: $("$kvxmsg" verify "$work/p1.bin" 2>/dev/null)"
    fi
    step "decode of $name" decode "$work/p1.bin" -o "$work/p1.xml"
    step "encode of the decoded $name" encode "$work/p1.xml" -o "$work/p2.bin"
    if cmp -s "$work/p1.bin" "$work/p2.bin"; then
        same=$((same + 1))
        line="$line, decode + encode: same bytes"
    else
        line="$line, decode + encode: other bytes (attribute order turns at each text trip)"
    fi
    echo "$line"
done

echo
echo "kvxmsg demo: $(counted "$requests" "SOAP request") -> $(counted "$responses" response)," \
    "$(counted "$faults" fault), $(counted "$failures" failure);" \
    "$(counted "$packets" packet) encoded, $verified verified, $same back in the same bytes"
[ "$failures" -eq 0 ]
