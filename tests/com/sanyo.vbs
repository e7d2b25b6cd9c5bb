' A Sanyo camera, whose class has a member of its own: cscript //nologo sanyo.vbs ADDRESS
' Everything that is not as it should be is told; the last line is "all done" only if there was nothing.
Dim failures
failures = 0

Sub Check(what, actual, expected)
  If actual <> expected Then
    WScript.Echo what & " is " & actual & ", expected " & expected
    failures = failures + 1
  End If
End Sub

Dim camera, options
Set camera = CreateObject("QVPTZ.Sanyo")
Check "SendOpeCmd before Connect", camera.SendOpeCmd(18), False
Set options = CreateObject("QVPTZ.PropertyBag")
options.WriteProperty "Address", WScript.Arguments(0)
Check "Connect", camera.Connect(options.Contents), True
Check "SendOpeCmd", camera.SendOpeCmd(18), True
Check "SendOpeCmd with parameters", camera.SendOpeCmd(11, "execution=7"), True
Check "options", camera.Count, 0
Check "an option nobody has", camera.Item(0).Name, ""
Check "MoveTo", camera.MoveTo(10, 5), True
Check "pan", camera.Pan, 10
On Error Resume Next
camera.SendOpeCmd "zoom"
Check "error number of a command that is no number", Err.Number, 13
Err.Clear
On Error GoTo 0
camera.Disconnect
If failures = 0 Then WScript.Echo "all done"
