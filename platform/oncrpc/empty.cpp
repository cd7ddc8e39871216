// Placeholder until the layer has its first source.
