import type { ModuleKind } from './protocol';

// Modules that have every word of the query in their name or description; those whose name begins with it
// come first, then those that have it in the name.
export function searchModules(modules: ModuleKind[], query: string): ModuleKind[] {
  const whole = query.trim().toLowerCase();
  const parts = whole.split(/\s+/).filter((part) => part !== '');
  const rank = (module: ModuleKind): number => {
    const id = module.id.toLowerCase();
    return id.startsWith(whole) ? 0 : id.includes(whole) ? 1 : 2;
  };
  return modules
    .filter((module) => {
      const text = `${module.id} ${module.description}`.toLowerCase();
      return parts.every((part) => text.includes(part));
    })
    .sort((a, b) => rank(a) - rank(b) || a.id.localeCompare(b.id));
}
