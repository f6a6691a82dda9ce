@echo off
rem Runs every test and proof of the Windows build, from the folder that scripts/windows/bundle made,
rem on a machine without compiler or installer. The last line says how many passed and how many
rem failed; --long runs the proofs in their full form, which takes an hour or more.
setlocal
cd /d "%~dp0"
set passed=0
set failed=0
set form=--short
if "%~1"=="--long" set form=
rem An option with an equals sign would come apart on its way to :check.
set GTEST_FILTER=Machine.*:Windows.*
call :check "what only this system does" zorgenreg_tests.exe
set GTEST_FILTER=-Machine.*:Windows.*
set GTEST_BRIEF=1
call :check "tests" zorgenreg_tests.exe
call :check "C interface" zorreg_steps.exe steps.tsv
call :check "C interface, loaded by name" zorreg_load.exe zorgenreg64.dll
call :check "contention" contention.exe %form%
call :check "killed writers" kill_storm.exe %form%
call :check "stopped updates" stopped_updates.exe %form%
if "%~1"=="--long" call :check "failing calls" fault_sweep.exe
echo %passed% passed, %failed% failed
exit /b %failed%

:check
echo == %~1
%2 %3 %4 <NUL
if %errorlevel%==0 (set /a passed+=1) else (set /a failed+=1 & echo FAILED: %~1)
exit /b 0
