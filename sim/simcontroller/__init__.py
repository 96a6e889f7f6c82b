"""A simulated server management controller: Redfish over TLS with storage that can be made to fail."""
