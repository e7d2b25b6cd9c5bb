' A camera of another installation, with named presets: cscript //nologo quorvane.vbs ADDRESS
' Everything that is not as it should be is told; the last line is "all done" only if there was nothing.
Dim failures
failures = 0

Sub Check(what, actual, expected)
  If actual <> expected Then
    WScript.Echo what & " is " & actual & ", expected " & expected
    failures = failures + 1
  End If
End Sub

Dim camera, options, preset, names
Set camera = CreateObject("QVPTZ.Quorvane")
Set options = CreateObject("QVPTZ.PropertyBag")
options.WriteProperty "Address", WScript.Arguments(0)
On Error Resume Next
camera.GotoNamedPreset "7"
Check "error number before Connect", Err.Number, 91
Err.Clear
camera.Connect options.Contents
Check "error number without a feed", Err.Number, 17002
Check "error text without a feed", Err.Description, "Unrecognised feed"
Err.Clear
On Error GoTo 0

options.WriteProperty "Feed", "3"
Check "Connect", camera.Connect(options.Contents), True
Check "capabilities", camera.Capabilities, 14024839
Check "option", camera.Item("Feed").Description, "Feed name"
Check "MoveTo", camera.MoveTo(5, 5), False  ' moved all the same
Check "pan", camera.Pan, 5
camera.ZoomTo 1.5
Check "zoom", camera.ZoomLevel, 1.5

names = ""
For Each preset In camera.GetNamedPresets
  names = names & preset.Index & " " & preset.ID & " " & preset.Name & "; "
Next
Check "presets", names, "0 main gate Main gate; 1 7 Ramp & <yard>; "
camera.GotoNamedPreset "7"
If failures = 0 Then WScript.Echo "all done"
