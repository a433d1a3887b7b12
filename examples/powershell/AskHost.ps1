# A host program in PowerShell (5.1 and later): prints every push-scan request and answers it,
# through a child process.
#
#   powershell -File AskHost.ps1 [-Program PATH OF quorin-host.exe]
#
# docs/ask.md says what the lines mean.  It ends with Ctrl-C.
param([string]$Program = "quorin-host.exe")

$start = New-Object System.Diagnostics.ProcessStartInfo $Program, "--ask"
$start.UseShellExecute = $false
$start.RedirectStandardInput = $true
$start.RedirectStandardOutput = $true
$hostProcess = [System.Diagnostics.Process]::Start($start)
# Everything beyond ASCII is written as \uNNNN, so that the console's code page does not matter.
function Tell($word) {
  $json = ConvertTo-Json -Compress $word
  $json = [regex]::Replace($json, '[^\x20-\x7E]', { param($m) '\u{0:x4}' -f [int]$m.Value[0] })
  $hostProcess.StandardInput.WriteLine($json)
}

try {
  while ($null -ne ($line = $hostProcess.StandardOutput.ReadLine())) {
    $event = ConvertFrom-Json $line
    switch ($event.event) {
      "started" {
        if ($event.ask -ne 1) { throw "contract $($event.ask) is not known here" }
        if ($event.waiting) { "waits for an address" } else { "serves as $($event.pcName)" }
      }
      # A scanner that looks for this PC by its product: may it find it?
      "peer" { Tell @{ do = "filter"; number = $event.number; answer = $true } }
      "request" {
        "request $($event.number) ($($event.exchange)): $($event.driverName)"
        if ($event.exchange -eq "start") { Tell @{ do = "send"; number = $event.number; text = "ready" } }
        Tell @{ do = "answer"; number = $event.number; code = "OK" }
      }
      "mistake" { Write-Warning "line $($event.line) was not understood: $($event.reason)" }
    }
  }
} finally {
  # The end of its input ends the host.
  $hostProcess.StandardInput.Close()
  $hostProcess.WaitForExit()
}
exit $hostProcess.ExitCode
