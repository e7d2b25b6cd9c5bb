@echo off
rem Registers PTZD.dll where it is, for 32-bit hosts and on 64-bit Windows for 64-bit hosts too.
rem
rem   register.cmd [machine]   for all users; wants an administrator's prompt
rem   register.cmd user        for the current user alone
rem
rem Nothing is asked and no window shown. Exit code 0; 1 with the reason, and then nothing stays registered; 2 on a
rem wrong call. unregister.cmd takes the same words.
setlocal
set "how=/n"
set "what=registered"
if /i "%~1"=="/u" (
  set "how=/u /n"
  set "what=unregistered"
  shift /1
)
set "scope=%~1"
if "%scope%"=="" set "scope=machine"
if /i "%scope%"=="machine" set "scope=machine" & goto known
if /i "%scope%"=="user" set "scope=user" & goto known
echo usage: register.cmd [machine ^| user]
exit /b 2

:known
set "regsvr86=%SystemRoot%\System32\regsvr32.exe"
set "regsvr64="
if not exist "%SystemRoot%\SysWOW64\regsvr32.exe" goto chosen
set "regsvr86=%SystemRoot%\SysWOW64\regsvr32.exe"
rem Windows on ARM has no regsvr32 that loads x64 libraries.
if /i "%PROCESSOR_ARCHITECTURE%"=="ARM64" goto chosen
if /i "%PROCESSOR_ARCHITEW6432%"=="ARM64" goto chosen
set "regsvr64=%SystemRoot%\System32\regsvr32.exe"
rem A 32-bit prompt sees the 64-bit programs there.
if defined PROCESSOR_ARCHITEW6432 set "regsvr64=%SystemRoot%\Sysnative\regsvr32.exe"

:chosen
"%regsvr86%" /s %how% /i:%scope% "%~dp0x86\PTZD.dll"
if errorlevel 1 (
  set "failed=x86\PTZD.dll"
  goto failed
)
if not defined regsvr64 goto done
"%regsvr64%" /s %how% /i:%scope% "%~dp0x64\PTZD.dll"
if errorlevel 1 (
  set "failed=x64\PTZD.dll"
  if "%what%"=="registered" "%regsvr86%" /s /u /n /i:%scope% "%~dp0x86\PTZD.dll"
  goto failed
)

:done
echo PTZD.dll is %what% for %scope%.
exit /b 0

:failed
echo %~dp0%failed% could not be %what% for %scope%. 1>&2
if /i "%scope%"=="machine" echo For all users this wants an administrator's prompt. 1>&2
exit /b 1
