"""A native-messaging host of the usual twenty lines, answering the version command."""
import json
import struct
import sys


def main():
    while True:
        header = sys.stdin.buffer.read(4)
        if len(header) < 4:
            return
        request = json.loads(sys.stdin.buffer.read(struct.unpack("@I", header)[0]))
        if request.get("command") != 8:
            continue
        answer = json.dumps({
            "command": 8, "error": False, "errorMessage": "", "lastError": 0, "lastLowLevelError": 0,
            "pinModuleName": "", "missingPin": False, "invalidPin": False, "pinLength": 0,
            "version": "1.1"}).encode()
        sys.stdout.buffer.write(struct.pack("@I", len(answer)) + answer)
        sys.stdout.buffer.flush()


main()
