' A Secubest unit from a script: cscript //nologo secubest.vbs ADDRESS
' Everything that is not as it should be is told; the last line is "all done" only if there was nothing.
Dim failures
failures = 0

Sub Check(what, actual, expected)
  If actual <> expected Then
    WScript.Echo what & " is " & actual & ", expected " & expected
    failures = failures + 1
  End If
End Sub

Dim unit, options
Set unit = CreateObject("QVPTZ.Secubest")
Set options = CreateObject("QVPTZ.PropertyBag")
options.WriteProperty "MoveInterval", 5  ' one millisecond for a degree
On Error Resume Next
unit.Connect options.Contents
Check "error number without an address", Err.Number, 17003
Err.Clear
options.WriteProperty "Address", "localhost"
unit.Connect options.Contents
Check "error number of a name", Err.Number, 17001
Check "error text of a name", Left(Err.Description, 35), "Unable to connect to the server: 10"
Err.Clear
On Error GoTo 0
Check "Move before Connect", unit.Move(1), False

options.WriteProperty "Address", WScript.Arguments(0)
Check "Connect", unit.Connect(options.Contents), True
Check "capabilities", unit.Capabilities, 6684679
Check "options", unit.Count, 2
Check "Move up", unit.Move(1), True
unit.MoveTo 10, 5, 1
Check "pan", unit.Pan, 10
Check "tilt", unit.Tilt, 5
Check "zoom", unit.ZoomLevel, 1
Check "Zoom", unit.Zoom(2), True
Check "zoom", unit.ZoomLevel, 0.75
unit.ContinuousMove 0.4, 0
unit.ContinuousMove 0.4, 0                ' no second message
unit.ContinuousZoom 10                    ' the other byte order
unit.StopContinuous
Check "Disconnect", unit.Disconnect(), True
unit.StopContinuous                       ' nobody is told
If failures = 0 Then WScript.Echo "all done"
