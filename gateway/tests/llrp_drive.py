"""Drives an LLRP endpoint with sllurp, an independent LLRP client, and prints every tag it reported as one
JSON list. sllurp is found through PYTHONPATH (the tests point it beside the repository, never inside it).

    llrp_drive.py '{"port": 5084, "time": 2, "antennas": [1, 2], "tx_power": 0,
                    "access": {"op": "read", "bank": 2, "ptr": 0, "words": 2}}'
"""
import json
import sys

from sllurp.llrp import C1G2Read, C1G2Write, LLRPReaderClient, LLRPReaderConfig, LLRPReaderState


def jsonable(v, key=""):
    if isinstance(v, (bytes, bytearray)):
        # sllurp gives EPCs as hex text, memory words as raw bytes.
        return v.decode().upper() if key.startswith("EPC") else v.hex().upper()
    if isinstance(v, dict):
        return {str(k): jsonable(x, str(k)) for k, x in v.items()}
    if isinstance(v, (list, tuple)):
        return [jsonable(x) for x in v]
    return v


def main():
    args = json.loads(sys.argv[1])
    tags = []
    config = LLRPReaderConfig({
        "duration": args.get("time", 2),
        "antennas": args.get("antennas", [0]),
        "tx_power": args.get("tx_power", 0),
        "report_every_n_tags": args.get("every_n"),
        "start_inventory": True,
        "disconnect_when_done": True,
        "tag_content_selector": {
            "EnableROSpecID": True, "EnableSpecIndex": False, "EnableInventoryParameterSpecID": False,
            "EnableAntennaID": True, "EnableChannelIndex": False, "EnablePeakRSSI": True,
            "EnableFirstSeenTimestamp": True, "EnableLastSeenTimestamp": True, "EnableTagSeenCount": True,
            "EnableAccessSpecID": True,
        },
    })
    reader = LLRPReaderClient("127.0.0.1", args["port"], config)
    reader.add_tag_report_callback(lambda _r, seen: tags.extend(seen))
    access = args.get("access")
    if access:
        def start_access(r, _state):
            if access["op"] == "read":
                op = C1G2Read(AccessPassword=0, MB=access["bank"], WordPtr=access["ptr"], WordCount=access["words"])
            else:
                data = bytes.fromhex(access["data"])
                op = C1G2Write(AccessPassword=0, MB=access["bank"], WordPtr=access["ptr"],
                               WriteDataWordCount=len(data) // 2, WriteData=data)
            r.start_access_spec(op, stop_after_count=access.get("count", 0))
        reader.add_state_callback(LLRPReaderState.STATE_INVENTORYING, start_access)
    reader.connect()
    # sllurp stays connected after a timed ROSpec ends: leave politely (STOP/DELETE, CLOSE_CONNECTION).
    reader.join(args.get("time", 2) + 1.5)
    reader.disconnect(timeout=15)
    print(json.dumps({"tags": jsonable(tags), "closed": not reader.is_alive()}))


if __name__ == "__main__":
    main()
