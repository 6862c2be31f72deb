#!/usr/bin/env bash
# The whole link on this machine: lumo-host loads libkiva51.so, the bridge
# listens on a free loopback port, mgc-peer plays the schematic tool ("DXD")
# and the layout tool ("BSXE"), and the host sends a design back. Ends with an
# account of what the host was asked to do and what was written where.
#
# Usage: tools/demo.sh BIN_DIR [--keep]
#   BIN_DIR  the build's bin/ folder (lumo-host, mgc-peer, libkiva51.so)
#   --keep   keep the temporary folder (workspace, journal, logs) afterwards
set -euo pipefail

usage() {
    sed -n '7,9p' "$0" | sed 's/^# \{0,1\}//'
}

bin=""
keep=0
for argument in "$@"; do
    case "$argument" in
        --keep) keep=1 ;;
        -h|--help) usage; exit 0 ;;
        -*) echo "demo: unknown option '$argument'" >&2; usage >&2; exit 2 ;;
        *) [ -z "$bin" ] || { usage >&2; exit 2; }; bin=$argument ;;
    esac
done
[ -n "$bin" ] || { usage >&2; exit 2; }
[ -d "$bin" ] || { echo "demo: no such folder: $bin" >&2; exit 2; }
bin=$(cd "$bin" && pwd)
root=$(cd "$(dirname "$0")/.." && pwd)
examples=$root/examples
for needed in "$bin/lumo-host" "$bin/mgc-peer" "$bin/libkiva51.so"; do
    [ -e "$needed" ] || { echo "demo: $needed is missing: build first (./run demo does)" >&2; exit 1; }
done
for needed in netlist.json iff.json em_data.json; do
    [ -e "$examples/$needed" ] || { echo "demo: $examples/$needed is missing" >&2; exit 1; }
done
command -v python3 >/dev/null || { echo "demo: python3 is needed to read the journal" >&2; exit 1; }

# Every wait has a limit; the whole story takes a few seconds.
wait_seconds=15

work=$(mktemp -d "${TMPDIR:-/tmp}/kiva51-demo.XXXXXX")
workspace=$work/workspace
journal=$work/journal.jsonl
marks=$work/steps.tsv
host_pid=""
listener_pid=""

cleanup() {
    local status=$?
    exec 3>&- 2>/dev/null || true
    for pid in $listener_pid $host_pid; do
        kill "$pid" 2>/dev/null || true
    done
    for pid in $listener_pid $host_pid; do
        wait "$pid" 2>/dev/null || true
    done
    if [ "$keep" -eq 1 ] || [ "$status" -ne 0 ]; then
        echo "The demo's files are kept in $work" >&2
    else
        rm -rf "$work"
    fi
}
trap cleanup EXIT
trap 'echo; fail "interrupted"' INT TERM

fail() {
    echo "failed"
    echo "demo: FAILED: $*" >&2
    if [ -s "$work/host.err" ]; then
        echo "--- lumo-host's standard error (last lines):" >&2
        tail -n 15 "$work/host.err" >&2
    fi
    if [ -s "$journal" ]; then
        echo "--- journal (last records):" >&2
        tail -n 8 "$journal" >&2
    fi
    exit 1
}

step() {
    printf '  %-64s' "$1"
}

done_step() {
    echo "${1:-ok}"
}

# The journal reader: waits for records, picks fields, writes the account.
read -r -d '' journal_tool <<'PYTHON' || true
import json, os, sys, time


def records(path):
    try:
        with open(path, encoding="utf-8") as f:
            return [json.loads(line) for line in f if line.endswith("\n")]
    except FileNotFoundError:
        return []


def matches(record, conditions):
    return all(str(record.get(key)) == value for key, value in conditions)


def wait(path, seconds, count, pid, conditions):
    # Polls the file that the host writes and flushes per record.
    deadline = time.monotonic() + float(seconds)
    while True:
        found = [r for r in records(path) if matches(r, conditions)]
        if len(found) >= count:
            return found
        if pid:
            try:
                os.kill(int(pid), 0)
            except ProcessLookupError:
                sys.exit(f"demo: the process {pid} ended before it did that")
        if time.monotonic() > deadline:
            wanted = ", ".join(f"{k}={v}" for k, v in conditions)
            sys.exit(f"demo: {len(found)} of {count} records ({wanted}) after {seconds} s")
        time.sleep(0.02)


def short(value, width=60):
    text = json.dumps(value, ensure_ascii=False) if not isinstance(value, str) else value
    text = text.replace("\n", "\\n")
    return text if len(text) <= width else text[: width - 3] + "..."


def account(work, workspace, journal, marks, host_out, listener_out, port):
    all_records = records(journal)
    out_lines = open(host_out, encoding="utf-8").read().splitlines() if os.path.exists(host_out) else []
    steps = []
    with open(marks, encoding="utf-8") as f:
        for line in f:
            first, first_out, title = line.rstrip("\n").split("\t", 2)
            steps.append((int(first), int(first_out), title))
    bounds = steps[1:] + [(len(all_records), len(out_lines), "")]

    def rel(text):
        return text.replace(work + "/", "") if isinstance(text, str) else text

    def size(path):
        return f"{os.path.getsize(path)} bytes" if os.path.exists(path) else "missing"

    # Who wrote what, in the order it happened.
    written = []

    def wrote(path, who):
        if all(path != known for known, _ in written):
            written.append((path, who))

    def plugin_file(record):
        # The file the plug-in wrote just before asking the host to take it up.
        function, args = record["function"], record.get("args", [])
        if function in ("mgclink_import_iff_file", "mgclink_import_egs_file"):
            return args[1]
        if function == "mgclink_create_design":
            return os.path.join(workspace, "netlists", args[1] + ".net")
        return None

    print()
    print("What happened")
    print("=============")
    load = next((r for r in all_records if r["event"] == "load"), {})
    register = next((r for r in all_records if r["event"] == "register"), {})
    print(f"lumo-host loaded {os.path.basename(load.get('plugin', '?'))} (library version "
          f"{load.get('version')}); it registered {len(register.get('commands', []))} script "
          f"commands as \"{register.get('library')}\".")
    print(f"Workspace: {workspace} (open libraries Local_Components_lib and rflib).")
    print(f"Bridge: loopback port {port}. Paths below are relative to {work}/.")
    for index, ((first, first_out, title), (end, end_out, _)) in enumerate(zip(steps, bounds), 1):
        print()
        print(f"{index}. {title}")
        for r in all_records[first:end]:
            kind = r["event"]
            if kind == "command":
                result = "no value" if r.get("result") is None else r["result"]
                print(f"   script:      {r['name']} -> {result}")
            elif kind == "call" and r["function"] not in ("de_info", "fprintf"):
                path = plugin_file(r)
                if path:
                    wrote(path, "plug-in")
                    print(f"   plug-in:     wrote {rel(path)} ({size(path)})")
                args = ", ".join(json.dumps(rel(a), ensure_ascii=False) for a in r.get("args", []))
                status = "" if r.get("ok") else "   FAILED: " + r.get("reason", "")
                print("   host did:    " + short(f"{r['function']}({args})", 100) + status)
            elif kind == "info":
                print(f"   info window: {short(r['text'], 100)}")
            elif kind == "stderr":
                print(f"   log:         {short(r['text'].rstrip(), 100)}")
            elif kind == "eval" and not r.get("ok"):
                print(f"   refused:     {short(r.get('reason', ''), 100)}")
        for line in out_lines[first_out:end_out]:
            if line.startswith("[host] "):
                what, _, path = line[7:].rpartition(": ")
                wrote(path, "host (" + rel(what) + ")")
            elif line.startswith("[servers] "):
                print("   host shows:  " + line[10:])
    if listener_out and os.path.exists(listener_out):
        print()
        print("What the listening DXD peer received")
        for line in open(listener_out, encoding="utf-8"):
            message = json.loads(line)
            if message.get("event") != "message":
                continue
            properties = ", ".join(f"{k}={v}" for k, v in message.get("properties", {}).items())
            text = f"text of {message.get('text_size', 0)} bytes"
            if message.get("text_size"):
                wrote(message.get("text_file"), f"DXD peer (text of kind {message['kind']})")
            print(f"   kind {message['kind']} {message['kind_name']}: {properties}; {text}")
    for folder, _, files in os.walk(workspace):
        for name in sorted(files):
            wrote(os.path.join(folder, name), "host")
    print()
    print("Files written")
    width = max(len(rel(path)) for path, _ in written) if written else 0
    for path, who in written:
        print(f"   {rel(path):<{width}}  {size(path):>11}  by the {who}")
    print()
    print("Workspace tree")
    for folder, folders, files in os.walk(workspace):
        folders.sort()
        depth = 0 if folder == workspace else os.path.relpath(folder, workspace).count(os.sep) + 1
        print("   " + "    " * depth + os.path.basename(folder) + "/")
        for name in sorted(files):
            print("   " + "    " * (depth + 1) + name)
    exit_record = next((r for r in all_records if r["event"] == "exit"), None)
    if exit_record is not None:
        print()
        print(f"lumo-host ended with status {exit_record['code']}, "
              f"{exit_record['unreleased']} script value(s) left unreleased.")


def main():
    command, args = sys.argv[1], sys.argv[2:]
    if command == "wait":
        # wait FILE SECONDS COUNT PID KEY=VALUE...
        path, seconds, count, pid = args[:4]
        conditions = [tuple(a.split("=", 1)) for a in args[4:]]
        wait(path, seconds, int(count), pid, conditions)
    elif command == "port":
        found = [r for r in records(args[0]) if r.get("function") == "mgclink_show_connected_servers"]
        print(found[-1]["args"][1])
    elif command == "count":
        print(len(records(args[0])))
    elif command == "ports":
        with open(args[0], encoding="utf-8") as f:
            print(len(json.load(f)["document"]["regions"][0].get("ports", [])))
    elif command == "account":
        account(*args)


main()
PYTHON

journal_tool() {
    python3 -c "$journal_tool" "$@"
}

# wait_record COUNT KEY=VALUE...: until the journal holds COUNT such records.
wait_record() {
    local count=$1
    shift
    journal_tool wait "$journal" "$wait_seconds" "$count" "$host_pid" "$@" ||
        fail "lumo-host did not do what was asked (above: what was awaited)"
}

# wait_for_end PID: until the process has ended; false after the time limit.
wait_for_end() {
    local tenths
    for tenths in $(seq $((wait_seconds * 10))); do
        kill -0 "$1" 2>/dev/null || return 0
        sleep 0.1
    done
    ! kill -0 "$1" 2>/dev/null
}

# mark TITLE: the following journal records and host lines belong to TITLE.
mark() {
    local lines=0
    [ -e "$work/host.out" ] && lines=$(wc -l <"$work/host.out")
    printf '%s\t%s\t%s\n' "$(journal_tool count "$journal")" "$lines" "$1" >>"$marks"
}

# host STATEMENTS: hands statements to lumo-host's standard input.
host() {
    printf '%s\n' "$1" >&3
}

# peer APP FILE...: mgc-peer sends the described messages; waits until the bridge has read them.
peer_send() {
    local app=$1
    shift
    timeout "$wait_seconds" "$bin/mgc-peer" --port "$port" --app "$app" send "$@" \
        >>"$work/peers.out" 2>>"$work/peers.err" 3>&- ||
        fail "mgc-peer as $app could not send $*: $(tail -n 1 "$work/peers.err")"
}

echo "kiva51 demo (working in $work)"
mkdir -p "$work/host" "$work/export" "$work/received"
: >"$marks"

step "starting lumo-host with the plug-in and a fresh workspace"
mkfifo "$work/host.in"
# Read-write: opening does not wait for the reader, and the host sees the end
# of its input only when this script closes it.
exec 3<>"$work/host.in"
(cd "$work/host" && exec "$bin/lumo-host" --plugin "$bin/libkiva51.so" --workspace "$workspace" \
    --library Local_Components_lib --library rflib --journal "$journal" - \
    <"$work/host.in" >"$work/host.out" 2>"$work/host.err" 3>&-) &
host_pid=$!
wait_record 1 event=register
done_step

step "starting the bridge: mgcconnect_initialize(0, 0)"
mark 'The host script started the bridge on a free port and listed the connections.'
host 'mgcconnect_initialize(0, 0);'
host 'mgcconnect_show_connections();'
wait_record 1 event=call function=mgclink_show_connected_servers
port=$(journal_tool port "$journal")
done_step "port $port"

step "DXD pushes the netlist of lna_top (examples/netlist.json)"
mark 'DXD (the schematic tool) pushed the netlist of region lna of lna_top.sch, with its ports.'
peer_send DXD "$examples/netlist.json"
wait_record 1 event=call function=mgclink_create_design
done_step

step "BSXE pushes an IFF layout and EM data (iff.json, em_data.json)"
mark 'BSXE (the layout tool) pushed the IFF layout of pa_top, then the EM data of coupler_top.'
em_ports=$(journal_tool ports "$examples/em_data.json")
peer_send BSXE "$examples/iff.json" "$examples/em_data.json"
wait_record 1 event=call function=mgclink_import_iff_file
wait_record "$em_ports" event=call function=mgclink_add_port_to_fathom_view
done_step

step "a DXD peer listens for what the host sends"
"$bin/mgc-peer" --port "$port" --app DXD listen --count 3 --timeout "$wait_seconds" \
    --save "$work/received" >"$work/listener.out" 2>"$work/listener.err" 3>&- &
listener_pid=$!
journal_tool wait "$work/listener.out" "$wait_seconds" 1 "$listener_pid" event=connected ||
    fail "the listening peer did not connect: $(cat "$work/listener.err")"
done_step

step "the host sends pa_top as IFF and two RF-region requests"
mark 'The host script sent the design pa_top as IFF (its schematic and the layout just imported) and asked for the netlist of region lna and to highlight it.'
# The host's IFF export of the schematic of pa_top, as its IFF writer would leave it.
cat >"$work/export/pa_top_sch.iff" <<'IFF'
IFF 2.1
# Schematic of RF region pa of pa_top, written by the host
CELL pa_top
  INSTANCE Q1 CELL=npn_hbt_4x
  INSTANCE C_MATCH CELL=mim_cap C=1.2p
  NET RFIN Q1.B
  NET RFOUT C_MATCH.2
ENDCELL
END
IFF
host 'mgcconnect_is_connected_to_schematic();'
host 'mgcconnect_show_connections();'
host "mgcconnect_designsend_command(\"$work/export/pa_top_sch.iff\", \"$workspace/libraries/rflib/mgcLayoutTmp.iff\", \"pa_top\", \"pa\", \"C:/designs/rf_frontend\");"
host 'mgcconnect_netlist_command("lna_top", "lna", "", "");'
host 'mgcconnect_push_command("lna_top", "", "lna");'
wait_record 1 event=command name=mgcconnect_push_command
# The listener ends by itself once the three messages are in.
wait_for_end "$listener_pid" || fail "the listening peer did not end: $(cat "$work/listener.err")"
listener_status=0
wait "$listener_pid" || listener_status=$?
listener_pid=""
[ "$listener_status" -eq 0 ] || fail "the listening peer did not get the 3 messages: $(cat "$work/listener.err")"
done_step

step "ending lumo-host (end of its input)"
exec 3>&-
wait_for_end "$host_pid" || fail "lumo-host did not end after its input ended"
host_status=0
wait "$host_pid" || host_status=$?
host_pid=""
[ "$host_status" -eq 0 ] || fail "lumo-host ended with status $host_status"
done_step

journal_tool account "$work" "$workspace" "$journal" "$marks" "$work/host.out" \
    "$work/listener.out" "$port"
