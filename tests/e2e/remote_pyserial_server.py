"""remote_pyserial_server.py TCPPORT PTY: python3-serial's RFC 2217 server example, as shipped, on a pty. A pty
has no DTR, RTS or modem lines (their ioctls fail and the example drops the client); the device uses none."""
import runpy, sys
import serial.rfc2217, serial.serialposix

EXAMPLE = "/usr/share/doc/python3-serial/examples/rfc2217_server.py"
serial.serialposix.Serial._update_dtr_state = serial.serialposix.Serial._update_rts_state = lambda self: None
serial.rfc2217.PortManager.check_modem_lines = lambda self, force_notification=False: None
sys.argv = [EXAMPLE, "-p", sys.argv[1], sys.argv[2]]
runpy.run_path(EXAMPLE, run_name="__main__")
