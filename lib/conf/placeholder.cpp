// Removed with the first source of this folder.
