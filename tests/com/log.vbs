' The log file of a camera that asks for a login: cscript //nologo log.vbs ADDRESS
' Everything that is not as it should be is told; the last line is "all done" only if there was nothing.
Dim failures
failures = 0

Sub Check(what, actual, expected)
  If actual <> expected Then
    WScript.Echo what & " is " & actual & ", expected " & expected
    failures = failures + 1
  End If
End Sub

Dim log, files, file, written
Set log = CreateObject("QVPTZ.Log")
Set files = CreateObject("Scripting.FileSystemObject")
file = files.GetSpecialFolder(2) & "\" & files.GetTempName
Check "on at first", log.Active, False
log.Stop
On Error Resume Next
log.Start file & "\none"
Check "error where there is no folder", Err.Number, 75
Check "its text", Left(Err.Description, 25 + Len(file)), "Path/File access error: " & file & "\"
Err.Clear
On Error GoTo 0
Check "on without a file", log.Active, False

Sub Connect(camera, address)
  Dim options
  Set options = CreateObject("QVPTZ.PropertyBag")
  options.WriteProperty "Address", address
  On Error Resume Next
  camera.Connect options.Contents
  On Error GoTo 0
End Sub

Dim camera, address
address = WScript.Arguments(0)
Set camera = CreateObject("QVPTZ.Axis")
Connect camera, "operator:tooearly@" & address
log.Start file
Check "on", log.Active, True
Connect camera, "operator:wr0ngword@" & address
Connect camera, "operator:s3cretword@" & address
camera.Move 8, 5
Connect CreateObject("QVPTZ.Elmo"), "operator:wr0ngword@127.0.0.1:1"
Check "on for another object", CreateObject("QVPTZ.Log").Active, True
log.Stop
Check "on at last", log.Active, False
camera.Move 4, 5

written = files.OpenTextFile(file).ReadAll
files.DeleteFile file

Dim expression
Set expression = New RegExp
expression.Multiline = True
Sub CheckLine(what, pattern, expected)
  expression.Pattern = pattern
  Check what, expression.Test(written), expected
End Sub
CheckLine "a refused login", "^[-0-9]+T[:.0-9]+Z warning QVPTZ\.Axis 127\.0\.0\.1:\d+ GET http://\*\*\*@127\.0\.0\.1:\d+/\S+ -> 401 Unauthorized, \d+ bytes, [.\d]+ ms", True
CheckLine "a move", "Z info QVPTZ\.Axis 127\.0\.0\.1:\d+ GET http://\S+[?]pan=-32 -> 204 No Content, ", True
CheckLine "a refused connection", "Z error QVPTZ\.Elmo 127\.0\.0\.1:1 GET http://\S+ -> error 13104: Failed to connect to the HTTP server", True
CheckLine "a message", "Z info QVPTZ\.Axis 127\.0\.0\.1:\d+ Requesting ", True
CheckLine "what was before", "tooearly", False
CheckLine "what was behind", "[?]pan=-37 ", False
CheckLine "a password", "wr0ngword|s3cretword", False
If failures > 0 Then WScript.Echo written
If failures = 0 Then WScript.Echo "all done"
