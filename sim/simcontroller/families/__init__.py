"""Storage families: one module each, which builds a controller's resources and knows how its items fail."""
