import type { ModuleKind } from './protocol';

export type ModuleGroup = 'sources' | 'processing' | 'results';

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

// By what they do with signals, in the order in which one needs them.
export function groupModules(modules: ModuleKind[]): [ModuleGroup, ModuleKind[]][] {
  const groupOf = ({ inputs, outputs }: ModuleKind): ModuleGroup => (outputs.length === 0 ? 'results' : inputs.length === 0 ? 'sources' : 'processing');
  const groups: ModuleGroup[] = ['sources', 'processing', 'results'];
  return groups.map((group): [ModuleGroup, ModuleKind[]] => [group, modules.filter((module) => groupOf(module) === group)]).filter(([, each]) => each.length > 0);
}
