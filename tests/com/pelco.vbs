' Two receivers on one serial line from a script: cscript //nologo pelco.vbs, with them on COM1.
' Everything that is not as it should be is told; the last line is "all done" only if there was nothing.
Dim failures
failures = 0

Sub Check(what, actual, expected)
  If actual <> expected Then
    WScript.Echo what & " is " & actual & ", expected " & expected
    failures = failures + 1
  End If
End Sub

' One millisecond for a degree of a move.
Function Options(comPort, address, protocol, baud)
  Dim bag
  Set bag = CreateObject("QVPTZ.PropertyBag")
  bag.WriteProperty "COMPort", comPort
  bag.WriteProperty "Port", address
  bag.WriteProperty "Protocol", protocol
  bag.WriteProperty "Baud", baud
  bag.WriteProperty "MoveInterval", 5
  bag.WriteProperty "ZoomInterval", 1
  Options = bag.Contents
End Function

Dim first, second
Set first = CreateObject("QVPTZ.Pelco")
Set second = CreateObject("QVPTZ.Pelco")

On Error Resume Next
first.PresetGoto 0
Check "error number without a port", Err.Number, 91
Err.Clear
On Error GoTo 0
Check "Connect without a port", first.Connect(CreateObject("QVPTZ.PropertyBag").Contents), False
Check "Connect to a port that is not there", first.Connect(Options(9, 1, 0, "4800")), False

' Pelco-D at address 1. The second one finds the line open and takes it as it is.
Check "Connect", first.Connect(Options(1, 1, 0, "4800")), True
Check "Connect of the second", second.Connect(Options(1, 2, 1, "9600")), True
Check "Move right", first.Move(8), True
Check "MoveTo", first.MoveTo(5, 10), True
Check "pan", first.Pan, 5
Check "tilt", first.Tilt, 10
Check "Zoom", first.Zoom(1), False  ' though it was driven
Check "PresetSave", first.PresetSave(0), True
first.PresetGoto 31
On Error Resume Next
first.PresetGoto 247
Check "error number of a sum beyond a byte", Err.Number, 6
Err.Clear
On Error GoTo 0

' Pelco-P at address 2.
second.ContinuousMove -10, 20.4
second.ContinuousZoom -1
second.StopContinuous
Check "Iris open", second.Iris(1), True

' The port closes with its last user.
Check "Disconnect", first.Disconnect(), True
second.ContinuousMove 64, 0
second.ContinuousMove 0, 0
Check "Disconnect of the second", second.Disconnect(), True
On Error Resume Next
second.ContinuousMove 0, 0
Check "error number after the port was closed", Err.Number, 91
Err.Clear
On Error GoTo 0
Check "Connect again", second.Connect(Options(1, 2, 1, "4800")), True
second.PresetGoto 254
Set second = Nothing
If failures = 0 Then WScript.Echo "all done"
