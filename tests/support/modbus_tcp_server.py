"""Debian's pymodbus as a Modbus TCP gateway's far end, for the network tests:
unit 1 alone (others get the gateway's "no answer" exception), holding
registers 0-199 and coils 0-63, presets given as h5=7 or c3=1.
  modbus_tcp_server.py PORT [PRESET]..."""
import sys

from pymodbus.datastore import ModbusSequentialDataBlock, ModbusServerContext, ModbusSlaveContext
from pymodbus.server import StartTcpServer

tables = {"h": [0] * 200, "c": [0] * 64}
for preset in sys.argv[2:]:
    at, value = preset[1:].split("=")
    tables[preset[0]][int(at)] = int(value, 0)
unit = ModbusSlaveContext(hr=ModbusSequentialDataBlock(0, tables["h"]),
                          co=ModbusSequentialDataBlock(0, tables["c"]), zero_mode=True)
StartTcpServer(context=ModbusServerContext(slaves={1: unit}, single=False),
               address=("127.0.0.1", int(sys.argv[1])), allow_reuse_address=True)
