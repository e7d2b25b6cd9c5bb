' A Vivotek camera of the newer generation, with named presets: cscript //nologo vivotek.vbs ADDRESS
' Everything that is not as it should be is told; the last line is "all done" only if there was nothing.
Dim failures
failures = 0

Sub Check(what, actual, expected)
  If actual <> expected Then
    WScript.Echo what & " is " & actual & ", expected " & expected
    failures = failures + 1
  End If
End Sub

Dim camera, options, presets, preset, names
Set camera = CreateObject("QVPTZ.Vivotek")
Set options = CreateObject("QVPTZ.PropertyBag")
options.WriteProperty "Address", WScript.Arguments(0)
Check "Connect", camera.Connect(options.Contents), True
Check "PresetSave", camera.PresetSave(3), False  ' stored all the same
camera.PresetSave 12
Check "MoveTo", camera.MoveTo(10, -5), True
Check "pan", camera.Pan, 10

' The collection lives without its camera, and twice at once.
Set presets = camera.GetNamedPresets
names = ""
For Each preset In presets
  names = names & preset.Index & " " & preset.ID & "; "
Next
Check "presets", names, "0 Main gate; 0 Car park & ramp; 0 Quorvane preset 3; 0 Quorvane preset 12; "
Check "preset by its key", presets("Quorvane preset 12").Name, "Quorvane preset 12"
Check "first preset", presets(1).Name, "Main gate"
On Error Resume Next
presets.Item "Door"
Check "error number of a preset that is not listed", Err.Number, 5
Err.Clear
camera.GotoNamedPreset "Front & back"
Check "error number of a preset nobody saved", Err.Number, 17001
Check "error text of it", Err.Description, "Received HTTP error 400 Bad Request"
Check "error source of it", Err.Source, "QVPTZ.Vivotek"
Err.Clear
On Error GoTo 0
camera.GotoNamedPreset presets(2).ID
camera.Disconnect
Set camera = Nothing
Check "presets without the camera", presets.Count, 4
If failures = 0 Then WScript.Echo "all done"
