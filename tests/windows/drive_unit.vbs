' Drives CamRelay.clsClient the way a script host does: created by its ProgID,
' called with literal arguments where the interface takes them by reference.
' Arguments: the unit's port, a free local UDP port, a working folder.
' Prints every failed check and "VBSCRIPT OK" when none failed.
Option Explicit
Dim unitPort, localPort, folder, client, failures
unitPort = CLng(WScript.Arguments(0))
localPort = CLng(WScript.Arguments(1))
folder = WScript.Arguments(2)
failures = 0

Sub Check(condition, what)
  If Not condition Then
    WScript.Echo "FAILED: " & what
    failures = failures + 1
  End If
End Sub

Set client = CreateObject("CamRelay.clsClient")
Check client.RemotePort = 0, "RemotePort is 0 before Connetti"
Check client.Connesso = False, "no link before Connetti"

client.Connetti "127.0.0.1", unitPort, localPort, False, 1, folder
Check client.Protocol = 1, "Connetti chose UDP (Protocol = " & client.Protocol & ")"
Check client.RemoteHost = "127.0.0.1", "RemoteHost reads back"
Check client.RemotePort = unitPort, "RemotePort reads back"
Check client.LocalPort = localPort, "LocalPort reads back"
Check client.Connesso, "a bound UDP socket counts as connected"
Check client.PwdCrypted, "the code is sent scrambled"

client.StringaCodiceAccesso = "123456"
Check client.StringaCodiceAccesso = "123456", "StringaCodiceAccesso reads back"
client.p_NewStringaPassWord = "654321"
Check client.p_NewStringaPassWord = "654321", "p_NewStringaPassWord reads back"
client.RichiestaDiConnessione
Check client.StringaErroreConnessione = "", "no link error"

' The optional arguments left out: a UDP link, the working folder kept.
' Another local port: under load Wine was seen to refuse a bind to the port
' the first link closed a moment before, which is not what this checks.
client.Connetti "127.0.0.1", unitPort, localPort + 1
Check client.Protocol = 1, "Connetti without its optional arguments gives UDP (Protocol = " & client.Protocol & ")"
client.DownLoadStrCommand
client.Disconnetti
Check client.Connesso = False, "Disconnetti takes the link down"

If failures = 0 Then WScript.Echo "VBSCRIPT OK"
WScript.Quit failures
