' A first tour of the library from a script: cscript //nologo camera.vbs ADDRESS
' Everything that is not as it should be is told; the last line is "all done" only if there was nothing.
Dim failures
failures = 0

Sub Check(what, actual, expected)
  If actual <> expected Then
    WScript.Echo what & " is " & actual & ", expected " & expected
    failures = failures + 1
  End If
End Sub

' The catalogue. Name is the default member of an entry, Item the one of the list.
Dim drivers, driver, found, count
Set drivers = CreateObject("QVPTZ.PTZDrivers")
count = 0
For Each driver In drivers
  count = count + 1
  If driver.Class = "QVPTZ.Axis" Then found = driver.Name
Next
Check "entries listed", count, drivers.Count
Check "name of the Axis driver", found, "Axis cameras"
Set driver = drivers.Item(1)
Check "first class", driver.Class, "QVPTZ.ALinking"
Set driver = drivers(25)
Check "last class", driver.Class, "QVPTZ.Quorvane"
driver.Key = "mine"
Check "key", drivers(25).Key, "mine"

' The options a driver has beyond the common ones, for a settings page.
Dim camera, anOption, names, values
Set camera = CreateObject("QVPTZ.Axis")
names = ""
For Each anOption In camera
  names = names & anOption.Name & " (" & anOption.Description & ") "
  values = anOption.Values
  Check "highest zoom step", values(1), 10000
  Check "type", anOption.OType, 2
  Check "type of the default", VarType(anOption.Default), 2
Next
Check "options", names, "ZoomStep (Zoom step value) "
Check "option by position", camera.Item(0).Name, "ZoomStep"
Check "option by name", camera.Item("ZoomStep").Name, "ZoomStep"
Check "unknown option", camera.Item("Nothing").Name, ""

' A connection without an address fails.
Dim options, contents
Set options = CreateObject("QVPTZ.PropertyBag")
On Error Resume Next
camera.Connect options.Contents
Check "error number", Err.Number, 17003
Check "error text", Err.Description, "No address specified"
Check "error source", Err.Source, "QVPTZ.Axis"
Err.Clear
camera.Connect "camera"
Check "error number of a text", Err.Number, 13
Err.Clear
camera.Connect Empty
Check "error number of Empty", Err.Number, 13
Err.Clear
camera.Connect Null
Check "error number of Null", Err.Number, 13
Err.Clear
drivers.Item "1"
Check "error number of a text as index", Err.Number, 5
Err.Clear
On Error GoTo 0
Check "connected", camera.Connected, False

' The same with an address; the bytes are kept in a variable.
options.WriteProperty "Address", WScript.Arguments(0)
contents = options.Contents
Check "Connect", camera.Connect(contents), True
Check "connected", camera.Connected, True
Check "pan and tilt in the capabilities", camera.Capabilities And 3, 3
Check "pan", camera.Pan, -37
Check "tilt", camera.Tilt, 12

camera.Move 1                               ' up by the usual 5 degrees
Check "tilt after Move", camera.Tilt, 17
Check "Move right", camera.Move(8, 10), True
Check "pan after Move", camera.Pan, -27
Check "MoveTo", camera.MoveTo(10, 20), False  ' moved all the same
camera.MoveTo 30, 40, 2                     ' with a zoom it is the extended interface's
Check "zoom", camera.ZoomLevel, 2
Check "Zoom", camera.Zoom(1), True
camera.Zoom 2, 0.5
Check "zoom", camera.ZoomLevel, 1.75
camera.ContinuousMove 10, -5
camera.ContinuousMove 10, -5                ' no second request
camera.StopContinuous

' Wrong calls send nothing.
On Error Resume Next
camera.Move 1, "abc"
Check "error number of no number", Err.Number, 13
Err.Clear
camera.Move 1, 1E+39
Check "error number of a number too large", Err.Number, 6
Err.Clear
camera.Move 1, 2, 3
Check "error number of too many arguments", Err.Number, 450
Err.Clear
camera.Move
Check "error number of too few arguments", Err.Number, 449
Err.Clear
camera.Wriggle
Check "error number of an unknown member", Err.Number, 438
Err.Clear
On Error GoTo 0

Check "Disconnect", camera.Disconnect(), True
Check "connected", camera.Connected, False
If failures = 0 Then WScript.Echo "all done"
