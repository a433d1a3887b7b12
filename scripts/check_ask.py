# Serves as the program that quorin-host --ask asks: good lines and bad ones, each held against the
# schema of the contract.  Usage: check_ask.py HOST SCANNER SCHEMA ADDRESS.  Ends with 1 and a reason.
import json, subprocess, sys
import jsonschema

host_program, scanner, schema_file, address = sys.argv[1:]
schema = json.load(open(schema_file))
def fits(line, way):
    try:
        jsonschema.validate(json.loads(line), {"$ref": "#/definitions/" + way, **{k: schema[k] for k in ("definitions",)}})
        return True
    except (ValueError, jsonschema.ValidationError):
        return False

host = subprocess.Popen([host_program, "--ask", "--name", "ASK"], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
def hear(event):
    while True:
        line = host.stdout.readline()
        if not line:
            sys.exit(f"no line of {event} came")
        if not fits(line, "out"):
            sys.exit(f"not of the schema: {line}")
        if json.loads(line)["event"] == event:
            return json.loads(line)
def tell(line):
    host.stdin.write(line.encode() + b"\n")
    host.stdin.flush()

hear("started")
push = subprocess.Popen([scanner, "push", "--to", address, "--timeout", "20000"], stdout=subprocess.PIPE)
number = hear("request")["number"]
for line in ('{"do":', "null", '{"do":"dance"}', '{"do":"answer"}', '{"do":"answer","number":-1,"code":"OK"}',
             '{"do":"answer","number":%d,"code":"NO"}' % number, '{"do":"answer","number":%d,"code":4}' % number,
             '{"do":"send","number":%d}' % number, '{"do":"send","number":%d,"bytes":"\\u0100"}' % number,
             '{"do":"filter","number":%d,"answer":1}' % number):
    if fits(line, "in"):
        sys.exit(f"the schema takes {line}")
    tell(line)
    hear("mistake")
for line in ('{"do":"answer","number":77,"code":"OK"}', '{"do":"filter","number":%d,"answer":true}' % number):
    tell(line)
    hear("mistake")
good = '\ufeff{"do":"answer","number":%d,"code":"PM_NOT_INSTALL"}\r' % number
tell(good)
if hear("answer")["code"] != 6 or b"PM_NOT_INSTALL" not in push.communicate()[0]:
    sys.exit("the verdict did not reach the scanner")
listen = subprocess.Popen([scanner, "listen", "--to", address, "--count", "1", "--timeout", "20000"], stdout=subprocess.PIPE)
number = hear("request")["number"]
for line in ('{"do":"send","number":%d,"bytes":"\\u0000\\u00ff"}' % number, '{"do":"answer","number":%d,"code":1}' % number):
    if not fits(line, "in"):
        sys.exit(f"the schema refuses {line}")
    tell(line)
if hear("send")["bytes"] != 2:
    sys.exit("the data was not taken")
# The end of the input ends the host, though a question waits.
hear("request")
host.stdin.close()
hear("expired")
hear("stopped")
if host.wait() != 0 or b"\\x00\\xFF" not in listen.communicate()[0]:
    sys.exit("the data did not reach the scanner, or the host did not end well")
