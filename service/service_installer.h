#pragma once

/// Registers this executable as the service, prints the outcome to standard output and logs it.
void InstallService();

/// Stops and removes the service together with the remembered radio states, prints the outcome to
/// standard output and logs it. Waits for as long as the service is stopping.
void UninstallService();
