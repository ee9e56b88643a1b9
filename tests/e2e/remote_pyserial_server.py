"""Runs the RFC 2217 server example of Debian's python3-serial on a pseudo-terminal.

Usage: remote_pyserial_server.py TCPPORT PTY

The example drives the line's DTR and RTS and polls its modem lines, which a
pseudo-terminal does not have (the ioctls fail and the example drops the client).
The device protocol uses none of them, so here they do nothing; everything else is
the example as shipped.
"""
import runpy
import sys

import serial.rfc2217
import serial.serialposix

EXAMPLE = "/usr/share/doc/python3-serial/examples/rfc2217_server.py"

serial.serialposix.Serial._update_dtr_state = lambda self: None
serial.serialposix.Serial._update_rts_state = lambda self: None
serial.rfc2217.PortManager.check_modem_lines = lambda self, force_notification=False: None

sys.argv = [EXAMPLE, "-p", sys.argv[1], sys.argv[2]]
runpy.run_path(EXAMPLE, run_name="__main__")
